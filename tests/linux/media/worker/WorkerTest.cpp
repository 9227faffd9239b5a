#include "fakes/TemporaryDirectory.h"
#include "hosts/linux/media/worker/Lifeline.h"
#include "linux/media/worker/Sound.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace cadora;
using namespace cadora::test;

// The worker's contract with the process that starts it.
namespace {

class Recording {
public:
    explicit Recording(double seconds) {
        WavSettings settings;
        settings.frames = static_cast<std::int64_t>(seconds * settings.music.rate);
        writeMusic(path("source.wav"), settings);
    }
    std::string path(const std::string& name) const { return (folder_.path() / name).string(); }
    const TemporaryDirectory& folder() const { return folder_; }

private:
    TemporaryDirectory folder_;
};

// An export that takes much longer than any of these tests lets it, once it has begun to write.
class LongExport {
public:
    LongExport()
        : recording_(600), source_(recording_.path("source.wav"), OpenedFile::Use::read),
          output_(recording_.path("out.m4a"), OpenedFile::Use::create),
          worker_("export", {source_.descriptor(), output_.descriptor()}) {
        for (int i = 0; i < 12000 && output_.output().size == 0; ++i) {
            poll(nullptr, 0, 10);
        }
        REQUIRE(output_.output().size > 0);
    }

    RunningWorker& worker() { return worker_; }

private:
    Recording recording_;
    OpenedFile source_;
    OpenedFile output_;
    RunningWorker worker_;
};

} // namespace

TEST_CASE("both verbs answer with one line of JSON") {
    const Recording recording(2);
    const WorkerEnd duration = runDuration(recording.path("source.wav"));
    CHECK(duration.exitCode == 0);
    CHECK(duration.answer == "{\"seconds\":2}\n");
    const WorkerEnd end = runExport(recording.path("source.wav"), recording.path("out.m4a"));
    CHECK(end.exitCode == 0);
    CHECK(end.answer == "{\"seconds\":2,\"samples\":88200,\"rate\":44100}\n");
}

TEST_CASE("an export writes the index in front of the sound, and the same bytes every time") {
    const Recording recording(40);
    for (const char* name : {"one.m4a", "two.m4a"}) {
        REQUIRE(runExport(recording.path("source.wav"), recording.path(name)).exitCode == 0);
    }
    const std::vector<std::string> boxes = M4aFile(recording.path("one.m4a")).topLevelBoxes;
    REQUIRE(boxes.size() >= 3);
    CHECK(boxes[0] == "ftyp");
    CHECK(boxes[1] == "moov");
    CHECK(boxes.back() == "mdat");
    CHECK(readFile(recording.path("one.m4a")) == readFile(recording.path("two.m4a")));
}

TEST_CASE("the container's tags, labels and cover are carried over, private ones aren't") {
    const Recording recording(1);
    runTool({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "color=size=64x64:duration=0.1",
             "-frames:v", "1", recording.path("cover.png")});
    std::vector<std::string> command = {"ffmpeg",
                                        "-nostdin",
                                        "-v",
                                        "error",
                                        "-i",
                                        recording.path("source.wav"),
                                        "-i",
                                        recording.path("cover.png"),
                                        "-map",
                                        "0",
                                        "-map",
                                        "1",
                                        "-c:v",
                                        "copy",
                                        "-disposition:v",
                                        "attached_pic"};
    for (const char* tag : {"title=Prélude", "artist=Someone", "secret=of the studio", "TBPM=128",
                            "TSRC=de-abc-24-00001", "REPLAYGAIN_TRACK_GAIN=-7.50 dB"}) {
        command.insert(command.end(), {"-metadata", tag});
    }
    command.push_back(recording.path("tagged.mp3"));
    runTool(command);
    REQUIRE(runExport(recording.path("tagged.mp3"), recording.path("out.m4a")).exitCode == 0);
    const M4aFile file(recording.path("out.m4a"));
    const std::map<std::string, std::string> expected = {
        {"\xa9nam", "Prélude"},
        {"\xa9"
         "ART",
         "Someone"},
        {"tmpo", std::string("\0\x80", 2)},
        {"ISRC", "DEABC2400001"},
        {"REPLAYGAIN_TRACK_GAIN", "-7.50 dB"},
        {"covr", readFile(recording.path("cover.png"))},
        {"iTunSMPB", " 00000000 00000400 000003BC 000000000000AC44 00000000 00000000 00000000 00000000 "
                     "00000000 00000000 00000000 00000000"}};
    CHECK(file.tags == expected);
    CHECK(file.tracks == 1);
}

TEST_CASE("players that ignore the edit list are told where the sound begins and ends") {
    const Recording recording(2);
    REQUIRE(runExport(recording.path("source.wav"), recording.path("out.m4a")).exitCode == 0);
    const M4aFile file(recording.path("out.m4a"));
    unsigned before = 0;
    unsigned behind = 0;
    unsigned long long samples = 0;
    REQUIRE(std::sscanf(file.tags.at("iTunSMPB").c_str(), " 00000000 %X %X %llX", &before, &behind,
                        &samples) == 3);
    CHECK(before == file.editStart);
    CHECK(samples == file.editDuration);
    CHECK(before + samples + behind == file.packets.size() * 1024);
}

TEST_CASE("a cover larger than the song doesn't hide it") {
    const Recording recording(1);
    runTool({"ffmpeg", "-nostdin", "-v", "error", "-i", recording.path("source.wav"), "-id3v2_version", "0",
             recording.path("plain.mp3")});
    const std::size_t size = 3 << 20;
    std::string tag = "ID3";
    tag += {3, 0, 0};
    for (const int shift : {21, 14, 7, 0}) {
        tag += static_cast<char>(size >> shift & 0x7f);
    }
    tag += std::string(size, '\0');
    const auto path = recording.folder().file("covered.mp3", tag + readFile(recording.path("plain.mp3")));
    CHECK(runDuration(path).number("seconds").value_or(0) == 1);
}

TEST_CASE("a source without length, sound or sense is refused with a sentence for musicians") {
    const Recording recording(1);
    const auto refusal = [&](const std::string& bytes) {
        const WorkerEnd end = runExport(recording.folder().file("bad", bytes), recording.path("out.m4a"));
        CHECK(end.exitCode == 1);
        CHECK(std::filesystem::file_size(recording.path("out.m4a")) == 0);
        return std::pair(end.number("code").value_or(0), end.message());
    };
    std::string header = readFile(recording.path("source.wav")).substr(0, 44);
    header.replace(40, 4, 4, '\0');
    CHECK(refusal(header) ==
          std::pair(4.0, std::string("There is nothing to hear in this file: its length is zero.")));
    CHECK(refusal("no sound").first == 2);
    CHECK(runDuration(recording.folder().file("header.wav", header)).answer == "{\"seconds\":0}\n");
    // A codec that is known, but not let in.
    runTool({"ffmpeg", "-nostdin", "-v", "error", "-i", recording.path("source.wav"), "-c:a", "wmav2",
             recording.path("other.mkv")});
    const WorkerEnd other = runExport(recording.path("other.mkv"), recording.path("out.m4a"));
    CHECK(other.number("code").value_or(0) == 5);
    CHECK(other.message().find("wmav2") != std::string::npos);
}

TEST_CASE("a descriptor that isn't a file is refused with its reason") {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    RunningWorker worker("duration", {null});
    close(null);
    const WorkerEnd end = worker.wait();
    CHECK(end.exitCode == 1);
    CHECK(end.number("code").value_or(0) == 1);
}

TEST_CASE("an output that can't be written ends the export with its reason") {
    const Recording recording(2);
    const OpenedFile source(recording.path("source.wav"), OpenedFile::Use::read);
    const int readOnly = open(recording.folder().file("out.m4a", "").c_str(), O_RDONLY | O_CLOEXEC);
    RunningWorker worker("export", {source.descriptor(), readOnly});
    close(readOnly);
    const WorkerEnd end = worker.wait();
    CHECK(end.exitCode == 1);
    CHECK(end.number("code").value_or(0) == 6);
    CHECK(end.message().find("couldn’t be written") != std::string::npos);
}

TEST_CASE("the worker ends when its parent closes its input, and when it is told to") {
    LongExport abandoned;
    abandoned.worker().closeInput();
    CHECK(abandoned.worker().wait().exitCode == 2);

    LongExport terminated;
    kill(terminated.worker().pid(), SIGTERM);
    CHECK(terminated.worker().wait().signal == SIGTERM);
}

TEST_CASE("the worker stays behind everything that the user does") {
    LongExport running;
    CHECK(getpriority(PRIO_PROCESS, static_cast<id_t>(running.worker().pid())) >= 10);
}

TEST_CASE("a worker that makes no progress answers with an error and ends") {
    std::array<int, 2> answer{};
    REQUIRE(pipe2(answer.data(), O_CLOEXEC) == 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(answer[1], STDOUT_FILENO);
        endWhenStuck(std::chrono::milliseconds(20));
        for (volatile bool forever = true; forever;) {
        }
    }
    close(answer[1]);
    std::string text(4096, '\0');
    const ssize_t count = read(answer[0], text.data(), text.size());
    close(answer[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == 1);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    CHECK(text.find("\"code\":7") != std::string::npos);
}

TEST_CASE("a worker that goes on isn't taken for stuck") {
    const pid_t pid = fork();
    if (pid == 0) {
        endWhenStuck(std::chrono::milliseconds(200));
        timespec begin{};
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &begin);
        do {
            noteProgress();
            clock_gettime(CLOCK_MONOTONIC, &now);
        } while (now.tv_sec - begin.tv_sec < 2);
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == 0);
}

TEST_CASE("a worker that has to wait for the processor isn't taken for stuck") {
    const pid_t pid = fork();
    if (pid == 0) {
        endWhenStuck(std::chrono::milliseconds(100));
        // Asleep, it gets as much of the processor as behind busier programs.
        const timespec wait = {1, 0};
        nanosleep(&wait, nullptr);
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == 0);
}
