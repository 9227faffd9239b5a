#include "fakes/TemporaryDirectory.h"
#include "linux/media/worker/Sound.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace cadora;
using namespace cadora::test;

// Files that were made to do something else than to be heard, given to the whole worker.
namespace {

// A secret file, and a server at a port that nobody is to knock at.
class Trap {
public:
    Trap() {
        WavSettings settings;
        settings.frames = 44100;
        writeMusic(path("secret.wav"), settings);
        server_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        REQUIRE(bind(server_, reinterpret_cast<sockaddr*>(&address), size) == 0);
        REQUIRE(listen(server_, 1) == 0);
        REQUIRE(getsockname(server_, reinterpret_cast<sockaddr*>(&address), &size) == 0);
        port_ = ntohs(address.sin_port);
    }
    ~Trap() { close(server_); }
    Trap(const Trap&) = delete;
    Trap& operator=(const Trap&) = delete;

    std::string path(const std::string& name) const { return (folder_.path() / name).string(); }
    std::string address() const { return "http://127.0.0.1:" + std::to_string(port_) + "/secret.wav"; }
    std::string file(const std::string& name, const std::string& bytes) const {
        return folder_.file(name, bytes).string();
    }

    bool wasEntered() const {
        pollfd waiting{server_, POLLIN, 0};
        return poll(&waiting, 1, 0) > 0;
    }

private:
    TemporaryDirectory folder_;
    int server_;
    std::uint16_t port_;
};

// Refused, by an answer, and nothing was touched.
void checkRefused(const Trap& trap, const std::string& file) {
    CAPTURE(file);
    for (const WorkerEnd& end : {runDuration(file), runExport(file, trap.path("out.m4a"))}) {
        CAPTURE(end.answer);
        CHECK(end.exitCode == 1);
        CHECK(!end.message().empty());
    }
    CHECK_FALSE(trap.wasEntered());
}

} // namespace

TEST_CASE("a playlist or a script in the place of a sound reaches nothing") {
    const Trap trap;
    for (const std::string& target :
         {trap.path("secret.wav"), "file://" + trap.path("secret.wav"), trap.address()}) {
        checkRefused(trap, trap.file("song.wav",
                                     "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:10\n#EXTINF:1.0,\n" +
                                         target + "\n#EXT-X-ENDLIST\n"));
        checkRefused(trap, trap.file("list.wav", "ffconcat version 1.0\nfile '" + target + "'\n"));
        checkRefused(trap, trap.file("list.m4a", "#EXTM3U\n" + target + "\n"));
        checkRefused(trap,
                     trap.file("dash.mp3", "<?xml version=\"1.0\"?>\n<MPD "
                                           "xmlns=\"urn:mpeg:dash:schema:mpd:2011\" type=\"static\"><Period>"
                                           "<AdaptationSet><Representation><BaseURL>" +
                                               target +
                                               "</BaseURL></Representation></AdaptationSet></Period></MPD>"));
        checkRefused(trap,
                     trap.file("sdp.wav", "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\n"
                                          "m=audio 5004 RTP/AVP 0\n"));
        checkRefused(trap, trap.file("cue.flac", "FILE \"" + target + "\" WAVE\n  TRACK 01 AUDIO\n"));
    }
}

TEST_CASE("a movie that keeps its sound in another file doesn't get it") {
    const Trap trap;
    runTool({"ffmpeg", "-nostdin", "-v", "error", "-i", trap.path("secret.wav"), "-c:a", "pcm_s16le",
             trap.path("whole.mov")});
    std::string movie = readFile(trap.path("whole.mov"));
    // The data reference says "in this file"; it shall name the other one.
    const std::size_t at = movie.find("dref");
    REQUIRE(at != std::string::npos);
    const std::size_t entry = at + 12;
    REQUIRE((movie.substr(entry + 4, 4) == "url " || movie.substr(entry + 4, 4) == "alis"));
    movie.replace(entry + 4, 4, "url ");
    movie[entry + 11] = 0; // no longer self-contained
    const WorkerEnd end = runExport(trap.file("reference.mov", movie), trap.path("out.m4a"));
    CHECK(end.signal == 0);
    CHECK_FALSE(trap.wasEntered());
}

TEST_CASE("formats beyond those of sound are refused, although the library knows them") {
    const Trap trap;
    for (const char* format : {"mpegts", "nut", "flv", "asf"}) {
        const std::string path = trap.path(std::string("sound.") + format);
        runTool({"ffmpeg", "-nostdin", "-v", "error", "-i", trap.path("secret.wav"), "-f", format, path});
        checkRefused(trap, path);
    }
}

TEST_CASE("damaged files end with an answer and never with a crash") {
    const Trap trap;
    Random random(7);
    for (const char* name :
         {"a.wav", "a.aiff", "a.mp3", "a.m4a", "a.aac", "a.caf", "a.au", "a.flac", "a.ogg", "a.mkv"}) {
        runTool({"ffmpeg", "-nostdin", "-v", "error", "-i", trap.path("secret.wav"), trap.path(name)});
        const std::string whole = readFile(trap.path(name));
        for (int round = 0; round < 6; ++round) {
            std::string bytes = whole;
            // Half of the damage in the header, half of it anywhere.
            for (int i = 0; i < 20; ++i) {
                const std::size_t reach =
                    i % 2 == 0 ? std::min<std::size_t>(512, bytes.size()) : bytes.size();
                bytes[static_cast<std::size_t>(random.below(static_cast<int>(reach)))] =
                    static_cast<char>(random.below(256));
            }
            const std::string path = trap.file("damaged", bytes);
            CAPTURE(name);
            CAPTURE(round);
            for (const WorkerEnd& end : {runDuration(path), runExport(path, trap.path("out.m4a"))}) {
                CAPTURE(end.answer);
                CHECK(end.signal == 0);
                CHECK((end.exitCode == 0 || end.exitCode == 1));
            }
        }
    }
}

TEST_CASE("a header that claims a huge length doesn't take huge resources") {
    const Trap trap;
    std::string wav = readFile(trap.path("secret.wav"));
    for (const std::size_t at : {4, 40}) {
        wav.replace(at, 4, "\xff\xff\xff\x7f");
    }
    const WorkerEnd end = runExport(trap.file("huge.wav", wav), trap.path("out.m4a"));
    CHECK(end.exitCode == 0);
    CHECK(end.number("samples").value_or(0) == 44100);
}

TEST_CASE("a small file that claims months of sound at a rate that nobody records is refused") {
    const Trap trap;
    runTool({"flac", "-s", "--endian=little", "--sign=signed", "--channels=1", "--bps=8", "--sample-rate=1",
             "-b", "1024", "--no-seektable", "--no-padding", "--lax", "--force-raw-format", "-o",
             trap.path("months.flac"), trap.file("zeros", std::string(200000, '\0'))});
    checkRefused(trap, trap.path("months.flac"));
    CHECK(runDuration(trap.path("months.flac")).message().find("1 samples a second") != std::string::npos);
}

TEST_CASE("a file whose bytes can't hold the length that it claims is refused") {
    const Trap trap;
    // Silence in the largest blocks that FLAC has, an hour of it in 8 kB.
    runTool({"flac", "-s", "--endian=little", "--sign=signed", "--channels=1", "--bps=8",
             "--sample-rate=8000", "-b", "65535", "--no-seektable", "--no-padding", "--lax",
             "--force-raw-format", "-o", trap.path("dense.flac"),
             trap.file("zeros", std::string(std::size_t{8000} * 3600, '\0'))});
    checkRefused(trap, trap.path("dense.flac"));
    // As other encoders pack it, it is as good as any other sound.
    runTool({"flac", "-s", "--endian=little", "--sign=signed", "--channels=1", "--bps=8",
             "--sample-rate=8000", "--force-raw-format", "-o", trap.path("silence.flac"),
             trap.path("zeros")});
    CHECK(runDuration(trap.path("silence.flac")).number("seconds").value_or(0) == 3600);
}

TEST_CASE("a small file that asks for much memory doesn't get it") {
    const Trap trap;
    runTool({"ffmpeg", "-nostdin", "-v", "error", "-i", trap.path("secret.wav"), "-t", "0.1", "-c:a", "alac",
             trap.path("small.m4a")});
    std::string movie = readFile(trap.path("small.m4a"));
    // The cookie, which says how many samples a packet can have.
    const std::size_t sampleEntry = movie.find("alac", movie.find("stsd"));
    const std::size_t cookie = movie.find("alac", sampleEntry + 4);
    REQUIRE(cookie != std::string::npos);
    movie.replace(cookie + 8, 4, std::string("\x01\0\0\0", 4));
    const WorkerEnd end = runExport(trap.file("bomb.m4a", movie), trap.path("out.m4a"));
    CHECK(end.exitCode == 1);
    CHECK(end.number("code").value_or(0) == 7);
}
