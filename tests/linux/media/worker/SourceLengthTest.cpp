#include "hosts/linux/media/worker/SourceLength.h"

#include "fakes/TemporaryDirectory.h"
#include "hosts/linux/media/worker/ExportError.h"
#include "linux/media/worker/Sound.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <cmath>
#include <string>
#include <vector>

using namespace cadora;
using namespace cadora::test;

namespace {

// Half a minute at 44.1 kHz, as a WAV file.
class Files {
public:
    static constexpr std::int64_t frames = 1323001;

    Files() {
        WavSettings settings;
        settings.frames = frames;
        writeMusic(path("source.wav"), settings);
    }

    std::string path(const std::string& name) const { return (folder_.path() / name).string(); }

    std::string encode(const std::string& name, const std::vector<std::string>& options) const {
        std::vector<std::string> command = {"ffmpeg", "-nostdin",        "-v", "error", "-y",
                                            "-i",     path("source.wav")};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(path(name));
        runTool(command);
        return name;
    }

    void write(const std::string& name, const std::string& bytes) const { folder_.file(name, bytes); }
    std::string read(const std::string& name) const { return readFile(path(name)); }

    SourceLength measure(const std::string& name) const {
        const OpenedFile file(path(name), OpenedFile::Use::read);
        return measureSource(file.source());
    }
    std::int64_t samples(const std::string& name) const {
        const SourceLength length = measure(name);
        CHECK(length.rate == 44100);
        return length.samples;
    }

private:
    TemporaryDirectory folder_;
};

ExportFailure failureOf(const Files& files, const std::string& name) {
    try {
        static_cast<void>(files.measure(name));
    } catch (const ExportError& error) {
        CHECK(!error.message().empty());
        return error.failure();
    }
    FAIL("measured");
    return {};
}

void put(std::string& bytes, std::size_t at, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes.at(at + i) = static_cast<char>(value >> 8 * i);
    }
}

} // namespace

TEST_CASE("containers of raw samples are as long as they say") {
    const Files files;
    CHECK(files.samples("source.wav") == Files::frames);
    for (const char* name : {"a.aiff", "a.au", "a.caf", "a.flac"}) {
        CHECK(files.samples(files.encode(name, {})) == Files::frames);
    }
}

TEST_CASE("compressed sound is as long as its packets, whatever its header claims") {
    const Files files;
    CHECK(files.samples(files.encode("xing.mp3", {"-q:a", "4"})) == Files::frames);
    // 1105 samples of delay and the padding of the last frame.
    const std::int64_t bare = (Files::frames + 1105 + 1151) / 1152 * 1152;
    CHECK(files.samples(files.encode("bare.mp3", {"-q:a", "4", "-write_xing", "0"})) == bare);
    // One frame of delay.
    const std::int64_t stream = (Files::frames + 1024 + 1023) / 1024 * 1024;
    CHECK(files.samples(files.encode("stream.aac", {})) == stream);
    CHECK(files.samples(files.encode("alac.caf", {"-c:a", "alac"})) == Files::frames);
    CHECK(files.samples(files.encode("alac.m4a", {"-c:a", "alac"})) == Files::frames);
    CHECK(files.samples(files.encode("aac.m4a", {})) == Files::frames);
    CHECK(files.samples(files.encode("vorbis.ogg", {"-c:a", "libvorbis"})) == Files::frames);
}

TEST_CASE("a FLAC that came out of a pipe doesn't know its length, and is measured") {
    const Files files;
    files.write("pipe.flac", runTool({"sh", "-c", "ffmpeg -nostdin -v error -i \"$0\" -f flac - | cat",
                                      files.path("source.wav")}));
    CHECK(files.samples("pipe.flac") == Files::frames);
}

TEST_CASE("a file that was cut off is as long as what is left of it") {
    const Files files;
    const std::string flac = files.read(files.encode("whole.flac", {}));
    files.write("cut.flac", flac.substr(0, flac.size() / 3));
    const SourceLength cut = files.measure("cut.flac");
    CHECK(cut.samples % 4608 == 0); // whole frames
    CHECK(cut.seconds() < 15);
    CHECK(cut.seconds() > 5);

    files.write("cut.wav", files.read("source.wav").substr(0, 44 + 4 * 44100));
    CHECK(files.samples("cut.wav") == 44100);
}

TEST_CASE("a WAV whose recorder never came to write its length is as long as it is") {
    const Files files;
    std::string wav = files.read("source.wav");
    for (const std::uint32_t claim : {0U, 0xffffffffU}) {
        put(wav, 4, claim);
        put(wav, 40, claim);
        files.write("open.wav", wav);
        CHECK(files.samples("open.wav") == Files::frames);
    }
}

TEST_CASE("a file with nothing but a header has no length") {
    const Files files;
    std::string wav = files.read("source.wav").substr(0, 44);
    put(wav, 4, 36);
    put(wav, 40, 0);
    files.write("header.wav", wav);
    CHECK(files.measure("header.wav").samples == 0);
}

TEST_CASE("what isn't sound says so") {
    const Files files;
    files.write("empty.wav", "");
    CHECK(failureOf(files, "empty.wav") == ExportFailure::notAudio);
    files.write("letter.wav", "Dear Sir or Madam,\n");
    CHECK(failureOf(files, "letter.wav") == ExportFailure::notAudio);
    const std::string m4a = files.read(files.encode("whole.m4a", {}));
    files.write("cut.m4a", m4a.substr(0, m4a.size() / 2)); // its index was at the end
    CHECK(failureOf(files, "cut.m4a") == ExportFailure::notAudio);
    runTool({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=64x64:duration=1",
             "-c:v", "mpeg4", files.path("silent.mp4")});
    CHECK(failureOf(files, "silent.mp4") == ExportFailure::noSound);
}
