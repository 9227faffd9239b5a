#include "hosts/linux/media/worker/AudioSource.h"

#include "fakes/TemporaryDirectory.h"
#include "hosts/linux/media/worker/ExportError.h"
#include "linux/media/worker/Sound.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <string>

using namespace cadora;
using namespace cadora::test;

namespace {

class Source {
public:
    // Six seconds in the format of the name.
    explicit Source(const std::string& name, const std::vector<std::string>& options = {}) {
        WavSettings settings;
        settings.frames = 264600;
        writeMusic(path("source.wav"), settings);
        std::vector<std::string> command = {"ffmpeg", "-nostdin", "-v", "error", "-i", path("source.wav")};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(path(name));
        runTool(command);
        bytes = readFile(path(name));
    }

    // How many samples the bytes, as they are now, decode to.
    std::int64_t decode() const {
        const OpenedFile file(folder_.file("changed", bytes), OpenedFile::Use::read);
        AudioSource source(file.source());
        std::int64_t samples = 0;
        while (const AVFrame* frame = source.nextFrame()) {
            samples += frame->nb_samples;
        }
        return samples;
    }

    std::map<std::string, std::string> tags() const {
        const OpenedFile file(folder_.file("changed", bytes), OpenedFile::Use::read);
        return AudioSource(file.source()).tags();
    }

    std::string bytes;

private:
    std::string path(const std::string& name) const { return (folder_.path() / name).string(); }
    TemporaryDirectory folder_;
};

} // namespace

TEST_CASE("a packet that can't be decoded leaves as much silence, so that the rest stays in time") {
    Source source("a.m4a");
    REQUIRE(source.decode() >= 264600);
    const std::int64_t whole = source.decode();
    // The sound begins in front of the index, and is broken in its middle.
    const std::size_t middle = source.bytes.size() / 2;
    for (std::size_t i = middle; i < middle + 3000; ++i) {
        source.bytes[i] = '\xff';
    }
    CHECK(source.decode() == whole);
}

TEST_CASE("a sound of which most can't be decoded is damaged") {
    Source source("a.m4a");
    for (std::size_t i = 100; i < source.bytes.find("moov") - 8; ++i) {
        source.bytes[i] = '\xff';
    }
    try {
        static_cast<void>(source.decode());
        FAIL("decoded");
    } catch (const ExportError& error) {
        CHECK(error.failure() == ExportFailure::cannotDecode);
    }
}

TEST_CASE("tags are read from the container or from the stream, whichever has them") {
    for (const char* name : {"a.wav", "a.aiff", "a.mp3", "a.m4a", "a.flac", "a.ogg", "a.mkv"}) {
        CAPTURE(name);
        const Source source(name, {"-metadata", "title=A song"});
        const auto tags = source.tags();
        REQUIRE(tags.contains("title"));
        CHECK(tags.at("title") == "A song");
    }
}
