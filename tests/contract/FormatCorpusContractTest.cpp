// Every format that the helper promises, made by another encoder: each host's media framework must read and
// export it. Run by a program that defines hostsMediaFramework().

#include "contract/MediaFrameworkUnderTest.h"
#include "fakes/TemporaryDirectory.h"

#include <doctest/doctest.h>

#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>

// Not every system declares it.
extern "C" char** environ; // NOLINT(readability-redundant-declaration)

namespace cadora::test {

namespace {

namespace fs = std::filesystem;

constexpr double seconds = 2;
// What the padding of an encoder that doesn't tell of it may add.
constexpr double tolerance = 0.15;

void run(std::vector<std::string> command) {
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (std::string& word : command) {
        words.push_back(word.data());
    }
    words.push_back(nullptr);
    pid_t process = 0;
    int status = 0;
    if (posix_spawnp(&process, words.front(), nullptr, nullptr, words.data(), environ) != 0 ||
        waitpid(process, &status, 0) != process || status != 0) {
        throw std::runtime_error(command.front() + " failed");
    }
}

double loadDuration(MediaFrameworkUnderTest& media, const fs::path& file) {
    std::optional<Result<double>> result;
    media.framework().loadDuration(file, [&](Result<double> loaded) { result = std::move(loaded); });
    REQUIRE(media.runUntil([&] { return result.has_value(); }));
    const auto* const error = std::get_if<std::exception_ptr>(&*result);
    CHECK_MESSAGE(error == nullptr, (error ? errorText(*error) : ""));
    return error ? 0 : std::get<double>(*result);
}

} // namespace

TEST_CASE("every promised format is read at its length and exported at its length") {
    struct Format {
        const char* name;
        std::vector<std::string> options;
    };
    const std::vector<Format> formats = {
        {"song.wav", {}},
        {"song.aiff", {}},
        {"song.mp3", {"-b:a", "192k"}},
        {"song.m4a", {"-c:a", "aac", "-b:a", "192k"}},
        {"lossless.m4a", {"-c:a", "alac"}},
        {"song.aac", {"-c:a", "aac", "-b:a", "192k"}},
        {"song.caf", {"-c:a", "pcm_s16le"}},
        {"song.au", {"-c:a", "pcm_s16be"}},
        {"song.flac", {}},
    };
    const TemporaryDirectory folder;
    const auto media = hostsMediaFramework();
    for (const auto& [name, options] : formats) {
        CAPTURE(name);
        const fs::path source = folder.path() / name;
        std::vector<std::string> command = {
            "ffmpeg", "-nostdin",
            "-v",     "error",
            "-f",     "lavfi",
            "-i",     "sine=frequency=440:sample_rate=44100:duration=" + std::to_string(seconds)};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(source.string());
        run(std::move(command));

        CHECK(std::abs(loadDuration(*media, source) - seconds) < tolerance);
        const auto session = media->framework().makeExportSession(source, "AVAssetExportPresetAppleM4A");
        REQUIRE(session);
        const fs::path output = folder.path() / (std::string(name) + " recording.m4a");
        session->setOutputURL(output);
        session->setOutputFileType("AVFileTypeAppleM4A");
        bool ended = false;
        session->exportAsynchronously([&] { ended = true; });
        REQUIRE(media->runUntil([&] { return ended; }));
        CHECK(session->status() == AssetExportSession::completed);
        CHECK(readFile(output).substr(4, 4) == "ftyp");
        CHECK(std::abs(loadDuration(*media, output) - seconds) < tolerance);
    }
}

} // namespace cadora::test
