// The media framework with the worker that is installed, from a sound file to a recording.

#include "hosts/linux/media/FfmpegMediaFramework.h"

#include "contract/WaveFile.h"
#include "fakes/Recorders.h"
#include "fakes/TemporaryDirectory.h"
#include "fakes/WaitingMainActor.h"

#include <doctest/doctest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

using namespace cadora;
using test::readFile;
using test::TemporaryDirectory;
using test::WaitingMainActor;
using test::waveFile;
using test::waveHeader;
namespace fs = std::filesystem;

namespace {

struct Studio {
    TemporaryDirectory directory;
    fs::path output = directory.path() / "recording.m4a";
    test::RecordingSystemLog log;
    WaitingMainActor actor;
    std::optional<FfmpegMediaFramework> framework{std::in_place, actor, log, CADORA_EXPORT_WORKER};

    std::unique_ptr<AssetExportSession> start(const fs::path& source, int& calls) {
        auto session = framework->makeExportSession(source, "AVAssetExportPresetAppleM4A");
        session->setOutputURL(output);
        session->setOutputFileType("AVFileTypeAppleM4A");
        session->exportAsynchronously([&calls] { ++calls; });
        return session;
    }

    Result<double> duration(const fs::path& source) {
        std::optional<Result<double>> result;
        framework->loadDuration(source, [&](Result<double> loaded) { result = std::move(loaded); });
        REQUIRE(actor.runUntil([&] { return result.has_value(); }));
        return *result;
    }

    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory.path())) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

} // namespace

TEST_CASE("a sound file becomes an M4A file that can begin to play at once") {
    Studio studio;
    int calls = 0;
    const auto session = studio.start(studio.directory.file("source.wav", waveFile(66150)), calls);
    REQUIRE(studio.actor.runUntil([&] { return calls == 1; }));
    CHECK(session->status() == AssetExportSession::completed);
    CHECK_FALSE(session->error());
    const std::string recording = readFile(studio.output);
    CHECK(recording.substr(4, 8) == "ftypM4A ");
    CHECK(recording.find("moov") < recording.find("mdat"));
    CHECK(std::get<double>(studio.duration(studio.output)) == 1.5);
    CHECK(studio.names() == std::vector<std::string>{"recording.m4a", "source.wav"});
    CHECK(studio.log.lines.empty());
}

TEST_CASE("a sound that fills the scale is turned down, and the log says by how much") {
    Studio studio;
    std::string bytes = waveFile(44100);
    bytes.replace(44, 2, "\xff\x7f");
    int calls = 0;
    const auto session = studio.start(studio.directory.file("loud.wav", bytes), calls);
    REQUIRE(studio.actor.runUntil([&] { return calls == 1; }));
    CHECK(session->status() == AssetExportSession::completed);
    CHECK(studio.log.lines ==
          std::vector<std::string>{"[Cadora Helper] cadora-export: turned down by 0.4 dB, for a "
                                   "peak of -0.0 dB"});
}

TEST_CASE("the duration of a sound file is exact; what isn't one has an error") {
    Studio studio;
    CHECK(std::get<double>(studio.duration(studio.directory.file("a.wav", waveFile(66150)))) == 1.5);
    CHECK(std::holds_alternative<std::exception_ptr>(
        studio.duration(studio.directory.file("b.wav", "Dear reader"))));
    CHECK(std::holds_alternative<std::exception_ptr>(studio.duration(studio.directory.file("c.wav", ""))));
}

TEST_CASE("a sound file that is deleted while it is exported is exported whole") {
    Studio studio;
    const fs::path source = studio.directory.file("source.wav", waveFile(44100 * 20));
    int calls = 0;
    const auto session = studio.start(source, calls);
    fs::remove(source);
    REQUIRE(studio.actor.runUntil([&] { return calls == 1; }));
    CHECK(session->status() == AssetExportSession::completed);
    CHECK(std::get<double>(studio.duration(studio.output)) == 20);
}

TEST_CASE("a long export that is called off in the middle leaves nothing") {
    Studio studio;
    // An hour, which takes no room on the disk.
    const fs::path source = studio.directory.file("source.wav", waveHeader(44100 * 3600));
    fs::resize_file(source, 44 + 88200U * 3600U);
    int calls = 0;
    const auto session = studio.start(source, calls);
    studio.actor.runPosted();
    REQUIRE(session->status() == AssetExportSession::exporting);
    session->cancelExport();
    REQUIRE(studio.actor.runUntil([&] { return calls == 1; }));
    CHECK(session->status() == AssetExportSession::cancelled);
    studio.framework.reset();
    CHECK(studio.names() == std::vector<std::string>{"source.wav"});
}

TEST_CASE("a recording is synced before it gets its name, and its folder afterwards") {
    Studio studio;
    const fs::path source = studio.directory.file("source.wav", waveFile(4410));
    const fs::path trace = studio.directory.path() / "trace";
    const std::string command = "strace -f -qq -y -e trace=fsync,fdatasync,renameat -o '" + trace.string() +
                                "' '" CADORA_EXPORT_STARTER "' '" CADORA_EXPORT_WORKER "' '" +
                                source.string() + "' '" + studio.output.string() + "'";
    const int status = std::system(command.c_str());
    REQUIRE(WIFEXITED(status));
    REQUIRE(WEXITSTATUS(status) == 0);
    // What each call did to what, by the last components of the paths that strace shows.
    std::vector<std::string> calls;
    std::ifstream lines(trace);
    const std::string folder = studio.directory.path().filename();
    for (std::string line; std::getline(lines, line);) {
        const bool isRename = line.find("renameat(") != std::string::npos;
        const bool isTemporary = line.find(".tmp") != std::string::npos;
        if (line.find(folder) == std::string::npos) {
            continue; // a signal
        }
        REQUIRE(line.ends_with(" = 0"));
        calls.push_back(std::string(isRename ? "rename " : "sync ") + (isTemporary ? "temporary" : "folder"));
    }
    CHECK(calls == std::vector<std::string>{"sync temporary", "rename temporary", "sync folder"});
}
