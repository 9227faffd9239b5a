#include "hosts/linux/media/FfmpegMediaFramework.h"

#include "fakes/TemporaryDirectory.h"
#include "fakes/WaitingMainActor.h"
#include "hosts/linux/files/PosixFileManager.h"
#include "sharing/SharedMediaFramework.h"

#include <doctest/doctest.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <mutex>
#include <thread>

using cadora::AssetExportSession;
using cadora::FfmpegMediaFramework;
using cadora::PlatformError;
using cadora::Result;
using cadora::test::readFile;
using cadora::test::TemporaryDirectory;
using cadora::test::WaitingMainActor;
namespace fs = std::filesystem;

namespace {

constexpr const char* preset = "AVAssetExportPresetAppleM4A";
constexpr const char* m4a = "AVFileTypeAppleM4A";
constexpr const char* goodAnswer = R"(echo '{"seconds":1.5,"samples":66150,"rate":44100}')";

class ThreadSafeLog : public cadora::SystemLog {
public:
    void log(const std::string& line) override {
        const std::lock_guard guard(mutex_);
        lines_.push_back(line);
    }
    std::vector<std::string> lines() {
        const std::lock_guard guard(mutex_);
        return lines_;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

struct Outcome {
    int calls = 0;
    int status = -1;
    std::optional<PlatformError> error;
};

// A folder with a source, a worker that does what `script` says, and a framework that uses it.
class Bench {
public:
    explicit Bench(const std::string& script, FfmpegMediaFramework::Limits limits = {})
        : worker_(directory.file("worker", "#!/bin/sh\n" + script + "\n")) {
        fs::permissions(worker_, fs::perms(0700));
        useWorker(worker_, limits);
        source = directory.file("item/source.wav", "the sound");
        output = directory.path() / "item/recording.m4a";
    }

    void useWorker(const fs::path& worker, FfmpegMediaFramework::Limits limits = {}) {
        framework = std::make_unique<FfmpegMediaFramework>(actor, log, worker, limits);
        shared = std::make_unique<cadora::SharedMediaFramework>(*framework, files, actor,
                                                                std::make_shared<cadora::Rounds>(actor));
    }

    std::unique_ptr<AssetExportSession> start(Outcome& outcome) { return start(outcome, source, output); }

    std::unique_ptr<AssetExportSession> start(Outcome& outcome, const fs::path& from, const fs::path& to) {
        return start(outcome, from, to, *framework);
    }

    // As the program has it, which shares exports.
    std::unique_ptr<AssetExportSession> startShared(Outcome& outcome) {
        return startShared(outcome, source, output);
    }
    std::unique_ptr<AssetExportSession> startShared(Outcome& outcome, const fs::path& from,
                                                    const fs::path& to) {
        return start(outcome, from, to, *shared);
    }

    static std::unique_ptr<AssetExportSession> start(Outcome& outcome, const fs::path& from,
                                                     const fs::path& to, cadora::MediaFramework& media) {
        auto session = media.makeExportSession(from, preset);
        REQUIRE(session);
        session->setOutputURL(to);
        session->setOutputFileType(m4a);
        session->exportAsynchronously([&outcome, session = session.get()] {
            ++outcome.calls;
            outcome.status = session->status();
            outcome.error = session->error();
        });
        return session;
    }

    // Exports to the end.
    Outcome exportSource() {
        Outcome outcome;
        const auto session = start(outcome);
        REQUIRE(actor.runUntil([&] { return outcome.calls > 0; }));
        return outcome;
    }

    Result<double> duration() {
        std::optional<Result<double>> result;
        framework->loadDuration(source, [&](Result<double> loaded) { result = std::move(loaded); });
        CHECK_FALSE(result);
        REQUIRE(actor.runUntil([&] { return result.has_value(); }));
        return *result;
    }

    // What stands in the item's folder.
    std::vector<std::string> items() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory.path() / "item")) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    const TemporaryDirectory directory;
    fs::path source;
    fs::path output;
    ThreadSafeLog log;
    cadora::PosixFileManager posixFiles;
    cadora::SharedFileManager files{posixFiles};
    WaitingMainActor actor;
    std::unique_ptr<FfmpegMediaFramework> framework;
    std::unique_ptr<cadora::SharedMediaFramework> shared;

private:
    fs::path worker_;
};

// Where workers stop and wait until the test lets them go on, one by one. Each says that it is there.
class Gate {
public:
    explicit Gate(const TemporaryDirectory& directory)
        : arrivals_(directory.path() / "arrivals"), gate_(directory.path() / "gate") {
        REQUIRE(::mkfifo(arrivals_.c_str(), 0600) == 0);
        REQUIRE(::mkfifo(gate_.c_str(), 0600) == 0);
        // Open for both, neither side ever sees an end.
        arrivalsFile_ = ::open(arrivals_.c_str(), O_RDWR | O_CLOEXEC);
        gateFile_ = ::open(gate_.c_str(), O_RDWR | O_CLOEXEC);
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    ~Gate() {
        ::close(arrivalsFile_);
        ::close(gateFile_);
    }

    // The worker's part of it.
    static std::string script(const fs::path& folder) {
        return "echo $$ >'" + (folder / "arrivals").string() + "'\nread go <'" + (folder / "gate").string() +
               "'\n";
    }

    // The process number of the next worker to arrive.
    pid_t awaitArrival() const {
        std::string line;
        char c = 0;
        do {
            line += c;
            pollfd event{arrivalsFile_, POLLIN, 0};
            REQUIRE(::poll(&event, 1, 60000) == 1);
            REQUIRE(::read(arrivalsFile_, &c, 1) == 1);
        } while (c != '\n');
        return std::stoi(line.substr(1));
    }
    bool hasArrival() const {
        pollfd event{arrivalsFile_, POLLIN, 0};
        return ::poll(&event, 1, 0) == 1;
    }
    void letOneGo() const { REQUIRE(::write(gateFile_, "go\n", 3) == 3); }

private:
    fs::path arrivals_;
    fs::path gate_;
    int arrivalsFile_ = -1;
    int gateFile_ = -1;
};

// For what tells nobody when it happens.
template <class Condition> bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool isGone(pid_t pid) {
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

// An orphan that has ended stays in the list of processes where there is no init that reaps, as in a
// container.
bool hasEnded(pid_t pid) {
    const std::string status = readFile("/proc/" + std::to_string(pid) + "/stat");
    const auto name = status.rfind(") ");
    return name == std::string::npos || status[name + 2] == 'Z';
}

PlatformError errorOf(const Result<double>& result) {
    try {
        std::rethrow_exception(std::get<std::exception_ptr>(result));
    } catch (const PlatformError& error) {
        return error;
    }
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

} // namespace

TEST_CASE("an export brings the worker's output to its place, and nothing else") {
    Bench bench(std::string("[ \"$*\" = export ] || exit 9\ncat <&3 >&4\n") + goodAnswer);
    const Outcome outcome = bench.exportSource();
    CHECK(outcome.calls == 1);
    CHECK(outcome.status == AssetExportSession::completed);
    CHECK_FALSE(outcome.error);
    CHECK(readFile(bench.output) == "the sound");
    CHECK(bench.items() == std::vector<std::string>{"recording.m4a", "source.wav"});
    CHECK(static_cast<unsigned>(fs::status(bench.output).permissions()) == 0600U);
    CHECK(bench.log.lines().empty());
}

TEST_CASE("the worker gets its descriptors, and nothing else of this process") {
    Bench bench("");
    bench.useWorker(CADORA_WORKER_PROBE);
    const int leaked = ::fcntl(STDIN_FILENO, F_DUPFD, 50);
    REQUIRE(leaked >= 50);
    const auto handler = std::signal(SIGPIPE, SIG_IGN);
    const Outcome outcome = bench.exportSource();
    std::signal(SIGPIPE, handler);
    ::close(leaked);
    CHECK(outcome.status == AssetExportSession::completed);
    CHECK(readFile(bench.output) == "arguments: export\n"
                                    "descriptors: 0 1 2 3 4\n"
                                    "environment:\n"
                                    "folder: /\n"
                                    "signals:\n"
                                    "source writable: no\n"
                                    "source: the sound\n");
}

TEST_CASE("only the one preset has a session") {
    Bench bench("exit 9");
    CHECK_FALSE(bench.framework->makeExportSession(bench.source, "AVAssetExportPresetLowQuality"));
    CHECK_FALSE(bench.framework->makeExportSession(bench.source, ""));
    const auto session = bench.framework->makeExportSession(bench.source, preset);
    REQUIRE(session);
    CHECK(session->status() == AssetExportSession::unknown);
    CHECK_FALSE(session->error());
}

TEST_CASE("another file type than M4A fails") {
    Bench bench("exit 9");
    const auto session = bench.framework->makeExportSession(bench.source, preset);
    bool ended = false;
    session->setOutputURL(bench.output);
    session->setOutputFileType("AVFileTypeWAVE");
    session->exportAsynchronously([&] { ended = true; });
    CHECK_FALSE(ended);
    REQUIRE(bench.actor.runUntil([&] { return ended; }));
    CHECK(session->status() == AssetExportSession::failed);
    CHECK(session->error()->code() == FfmpegMediaFramework::unsupportedFileType);
}

TEST_CASE("an output that is there already is replaced") {
    Bench bench(std::string("cat <&3 >&4\n") + goodAnswer);
    bench.directory.file("item/recording.m4a", "an earlier attempt, and a long one");
    CHECK(bench.exportSource().status == AssetExportSession::completed);
    CHECK(readFile(bench.output) == "the sound");
}

TEST_CASE("temporaries that a crash left are cleared away") {
    Bench bench(std::string("cat <&3 >&4\n") + goodAnswer);
    bench.directory.file("item/.recording.m4a.0123456789abcdef.tmp", "half");
    CHECK(bench.exportSource().status == AssetExportSession::completed);
    CHECK(bench.items() == std::vector<std::string>{"recording.m4a", "source.wav"});
}

TEST_CASE("a worker that does not do its work fails the export in plain words and leaves nothing") {
    struct Case {
        const char* script;
        int code;
        const char* text;
        const char* logged;
    };
    const std::string stopped = "The audio converter stopped unexpectedly.";
    const std::string rubbish = "The audio converter gave an answer that makes no sense.";
    const Case cases[] = {
        {"kill -SEGV $$", FfmpegMediaFramework::stoppedUnexpectedly, stopped.c_str(), "ended by signal 11"},
        {"head -c 4 <&3 >&4; kill -KILL $$", FfmpegMediaFramework::stoppedUnexpectedly, stopped.c_str(),
         "ended by signal 9"},
        {"cat <&3 >&4; exit 3", FfmpegMediaFramework::stoppedUnexpectedly, stopped.c_str(),
         "ended with exit code 3"},
        {"cat <&3 >&4; echo hello", FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        {"cat <&3 >&4", FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        {"cat <&3 >&4; echo '[]'", FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        {"cat <&3 >&4; echo '{\"seconds\":1}'", FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        {"cat <&3 >&4; echo '{\"seconds\":1,\"samples\":0,\"rate\":44100}'",
         FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        {"cat <&3 >&4; echo '{\"error\":{\"code\":1,\"message\":\"no\"}}'",
         FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        {"echo '{\"seconds\":1,\"samples\":1,\"rate\":1}'; exit 1", FfmpegMediaFramework::answeredRubbish,
         rubbish.c_str(), ""},
        {"echo '{\"error\":{\"code\":\"1\",\"message\":\"no\"}}'; exit 1",
         FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        {"echo '{\"error\":\"no\"}'; exit 1", FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        // A good answer, but nothing behind it.
        {"echo '{\"seconds\":1,\"samples\":1,\"rate\":1}'", FfmpegMediaFramework::answeredRubbish,
         rubbish.c_str(), ""},
        {"cat <&3 >&4; exec yes", FfmpegMediaFramework::answeredRubbish, rubbish.c_str(), ""},
        {"cat <&3 >&4; echo '{\"error\":{\"code\":5,\"message\":\"The sound is damaged.\"}}'; exit 1", 5,
         "The sound is damaged.", ""},
    };
    for (const Case& fault : cases) {
        CAPTURE(fault.script);
        Bench bench(fault.script);
        const Outcome outcome = bench.exportSource();
        CHECK(outcome.calls == 1);
        CHECK(outcome.status == AssetExportSession::failed);
        REQUIRE(outcome.error);
        CHECK(*outcome.error == PlatformError(FfmpegMediaFramework::errorDomain, fault.code, fault.text));
        CHECK(bench.items() == std::vector<std::string>{"source.wav"});
        if (*fault.logged != '\0') {
            CHECK(bench.log.lines() ==
                  std::vector<std::string>{"[Cadora Helper] cadora-export: " + std::string(fault.logged)});
        } else {
            CHECK(bench.log.lines().empty());
        }
    }
}

TEST_CASE("what the worker says on its standard error goes to the log, the beginning of it") {
    Bench bench("printf 'first\\nsecond \\377\\n' >&2\nyes x | head -c 1000000 >&2\ncat <&3 >&4\n" +
                std::string(goodAnswer));
    CHECK(bench.exportSource().status == AssetExportSession::completed);
    const auto lines = bench.log.lines();
    REQUIRE(lines.size() > 2);
    CHECK(lines[0] == "[Cadora Helper] cadora-export: first");
    CHECK(lines[1] == "[Cadora Helper] cadora-export: second \uFFFD");
    std::size_t bytes = 0;
    for (const std::string& line : lines) {
        bytes += line.size() - lines[0].size() + 6;
    }
    CHECK(bytes < 4200);
}

TEST_CASE("a worker that waits for ever is ended") {
    Bench bench("sleep 1000; exit 0", {std::chrono::milliseconds(50), 2});
    const Outcome outcome = bench.exportSource();
    REQUIRE(outcome.error);
    CHECK(outcome.error->text() == "The audio converter stopped responding.");
    CHECK(bench.items() == std::vector<std::string>{"source.wav"});
}

TEST_CASE("a worker that computes in a circle is ended") {
    Bench bench("while :; do :; done", {std::chrono::milliseconds(50), 2});
    const Outcome outcome = bench.exportSource();
    REQUIRE(outcome.error);
    CHECK(outcome.error->code() == FfmpegMediaFramework::stoppedResponding);
}

TEST_CASE("a worker that goes on for ever is ended, whatever it shows of progress") {
    FfmpegMediaFramework::Limits limits;
    limits.time = std::chrono::milliseconds(300);
    Bench bench("while :; do echo progress >&2; done", limits);
    const Outcome outcome = bench.exportSource();
    REQUIRE(outcome.error);
    CHECK(outcome.error->code() == FfmpegMediaFramework::tookTooLong);
    CHECK(outcome.error->text() == "The audio converter took too long.");
    CHECK(bench.items() == std::vector<std::string>{"source.wav"});
}

TEST_CASE("what a worker may take follows from the size of its source, and has an end") {
    const FfmpegMediaFramework::Limits limits;
    CHECK(limits.timeFor(271358) < std::chrono::minutes(16));
    CHECK(limits.timeFor(10000000) == std::chrono::seconds(1900));
    CHECK(limits.timeFor(std::int64_t{1} << 62) == std::chrono::hours(6));
}

TEST_CASE("a worker that can't be started fails the export with the reason") {
    Bench bench("exit 0");
    bench.useWorker(bench.directory.path() / "missing");
    Outcome outcome = bench.exportSource();
    REQUIRE(outcome.error);
    CHECK(*outcome.error ==
          PlatformError(FfmpegMediaFramework::errorDomain, FfmpegMediaFramework::couldNotStart,
                        "The audio converter couldn’t be started: No such file or directory."));
    bench.useWorker(bench.directory.file("not a program", "text"));
    outcome = bench.exportSource();
    REQUIRE(outcome.error);
    CHECK(contains(outcome.error->text(), "The audio converter couldn’t be started: "));
    CHECK(bench.items() == std::vector<std::string>{"source.wav"});
}

TEST_CASE("a source that can't be opened fails before any worker starts") {
    Bench bench("exit 9");
    Outcome outcome;
    auto session = bench.start(outcome, bench.directory.path() / "item/gone.wav", bench.output);
    CHECK(outcome.calls == 0);
    REQUIRE(bench.actor.runUntil([&] { return outcome.calls == 1; }));
    CHECK(outcome.status == AssetExportSession::failed);
    CHECK(outcome.error->text() == "“gone.wav” couldn’t be opened: No such file or directory");
    outcome = {};
    session = bench.start(outcome, bench.directory.path() / "item", bench.output);
    REQUIRE(bench.actor.runUntil([&] { return outcome.calls == 1; }));
    CHECK(outcome.error->text() == "“item” couldn’t be opened: it is a folder");
    REQUIRE(::mkfifo((bench.directory.path() / "pipe").c_str(), 0600) == 0);
    outcome = {};
    session = bench.start(outcome, bench.directory.path() / "pipe", bench.output);
    REQUIRE(bench.actor.runUntil([&] { return outcome.calls == 1; }));
    CHECK(outcome.error->text() == "“pipe” couldn’t be opened: it is not a file");
}

TEST_CASE("an output whose folder is gone fails with the reason") {
    Bench bench("exit 9");
    Outcome outcome;
    const auto session = bench.start(outcome, bench.source, bench.directory.path() / "gone/recording.m4a");
    REQUIRE(bench.actor.runUntil([&] { return outcome.calls == 1; }));
    CHECK(outcome.status == AssetExportSession::failed);
    CHECK(outcome.error->text() == "“recording.m4a” couldn’t be written: No such file or directory");
}

TEST_CASE("an item that is removed during its export fails it, and nothing comes back") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()) + "cat <&3 >&4\n" + goodAnswer);
    Outcome outcome;
    const auto session = bench.start(outcome);
    bench.actor.runPosted();
    gate.awaitArrival();
    fs::remove_all(bench.directory.path() / "item");
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return outcome.calls == 1; }));
    CHECK(outcome.status == AssetExportSession::failed);
    CHECK(outcome.error->text() == "“recording.m4a” couldn’t be written: No such file or directory");
    CHECK_FALSE(fs::exists(bench.directory.path() / "item"));
}

TEST_CASE("sessions of one source and one output share one export, each told of its end once") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()) + "cat <&3 >&4\n" + goodAnswer);
    Outcome first;
    Outcome second;
    Outcome third;
    const auto a = bench.startShared(first);
    CHECK(a->status() == AssetExportSession::waiting);
    const auto b = bench.startShared(second);
    bench.actor.runPosted();
    gate.awaitArrival();
    const auto c = bench.startShared(third);
    CHECK(a->status() == AssetExportSession::exporting);
    CHECK(c->status() == AssetExportSession::exporting);
    // One word lets one worker go: were there more, the others would wait for ever.
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return first.calls + second.calls + third.calls == 3; }));
    for (const Outcome* const outcome : {&first, &second, &third}) {
        CHECK(outcome->calls == 1);
        CHECK(outcome->status == AssetExportSession::completed);
    }
    CHECK_FALSE(gate.hasArrival());
}

TEST_CASE("sessions share a failure, too") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()) + "kill -SEGV $$");
    Outcome first;
    Outcome second;
    const auto a = bench.startShared(first);
    const auto b = bench.startShared(second);
    bench.actor.runPosted();
    gate.awaitArrival();
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return first.calls + second.calls == 2; }));
    CHECK(first.status == AssetExportSession::failed);
    CHECK(second.status == AssetExportSession::failed);
    CHECK(first.error == second.error);
}

TEST_CASE("another source at the same path is another export, as is another output") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()) + "cat <&3 >&4\n" + goodAnswer);
    Outcome first;
    Outcome second;
    const auto a = bench.startShared(first);
    const auto b = bench.startShared(second, bench.source, bench.directory.path() / "item/other.m4a");
    bench.actor.runPosted();
    gate.awaitArrival();
    gate.awaitArrival();
    gate.letOneGo();
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return first.calls + second.calls == 2; }));

    Outcome before;
    Outcome after;
    const auto c = bench.startShared(before);
    fs::remove(bench.source);
    bench.directory.file("item/source.wav", "new sound");
    const auto d = bench.startShared(after);
    bench.actor.runPosted();
    gate.awaitArrival();
    gate.awaitArrival();
    gate.letOneGo();
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return before.calls + after.calls == 2; }));
    CHECK(before.status == AssetExportSession::completed);
    CHECK(after.status == AssetExportSession::completed);
    const std::string written = readFile(bench.output);
    CHECK((written == "the sound" || written == "new sound"));
}

TEST_CASE("a session that comes when the output is in place gets an export of its own") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()) + "cat <&3 >&4\n" + goodAnswer);
    Outcome first;
    Outcome second;
    const auto a = bench.startShared(first);
    bench.actor.runPosted();
    gate.awaitArrival();
    gate.letOneGo();
    // The main actor does not run meanwhile, so that the first has not been told.
    REQUIRE(eventually([&] { return fs::exists(bench.output); }));
    bench.files.removeItem(bench.output);
    const auto b = bench.startShared(second);
    REQUIRE(bench.actor.runUntil([&] { return first.calls == 1; }));
    CHECK(first.status == AssetExportSession::completed);
    CHECK(second.calls == 0);
    bench.actor.runPosted();
    gate.awaitArrival();
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return second.calls == 1; }));
    CHECK(second.status == AssetExportSession::completed);
    CHECK(readFile(bench.output) == "the sound");
}

TEST_CASE("a cancelled export ends its worker, leaves nothing and says so") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench("echo half >&4\n" + Gate::script(place.path()) + goodAnswer);
    Outcome outcome;
    const auto session = bench.start(outcome);
    bench.actor.runPosted();
    const pid_t worker = gate.awaitArrival();
    session->cancelExport();
    session->cancelExport();
    CHECK(outcome.calls == 0);
    REQUIRE(bench.actor.runUntil([&] { return outcome.calls == 1; }));
    CHECK(outcome.status == AssetExportSession::cancelled);
    CHECK(outcome.error->text() == "The conversion was cancelled.");
    bench.framework.reset();
    CHECK(isGone(worker));
    CHECK(bench.items() == std::vector<std::string>{"source.wav"});
    bench.actor.runPosted();
    CHECK(outcome.calls == 1);
}

TEST_CASE("a released session is not called any more, and its export ends") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench("echo half >&4\n" + Gate::script(place.path()) + goodAnswer);
    Outcome outcome;
    auto session = bench.start(outcome);
    bench.actor.runPosted();
    const pid_t worker = gate.awaitArrival();
    session.reset();
    bench.framework.reset();
    CHECK(isGone(worker));
    bench.actor.runPosted();
    CHECK(outcome.calls == 0);
    CHECK(bench.items() == std::vector<std::string>{"source.wav"});
}

TEST_CASE("a shared export goes on until its last session is cancelled or released") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()) + "cat <&3 >&4\n" + goodAnswer);
    Outcome first;
    Outcome second;
    Outcome third;
    const auto a = bench.startShared(first);
    auto b = bench.startShared(second);
    const auto c = bench.startShared(third);
    bench.actor.runPosted();
    gate.awaitArrival();
    a->cancelExport();
    b.reset();
    REQUIRE(bench.actor.runUntil([&] { return first.calls == 1; }));
    CHECK(first.status == AssetExportSession::cancelled);
    CHECK(c->status() == AssetExportSession::exporting);
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return third.calls == 1; }));
    CHECK(third.status == AssetExportSession::completed);
    CHECK(first.calls == 1);
    CHECK(second.calls == 0);
    CHECK(readFile(bench.output) == "the sound");
}

TEST_CASE("an export that starts again right after it was cancelled is a new one") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()) + "cat <&3 >&4\n" + goodAnswer);
    Outcome first;
    Outcome second;
    const auto a = bench.startShared(first);
    bench.actor.runPosted();
    const pid_t worker = gate.awaitArrival();
    a->cancelExport();
    const auto b = bench.startShared(second);
    bench.actor.runPosted();
    gate.awaitArrival();
    REQUIRE(eventually([&] { return isGone(worker); }));
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return first.calls + second.calls == 2; }));
    CHECK(first.status == AssetExportSession::cancelled);
    CHECK(second.status == AssetExportSession::completed);
    CHECK(bench.items() == std::vector<std::string>{"recording.m4a", "source.wav"});
}

TEST_CASE("a cancellation that comes too late changes nothing") {
    Bench bench(std::string("cat <&3 >&4\n") + goodAnswer);
    Outcome outcome;
    const auto session = bench.start(outcome);
    bench.actor.runPosted();
    REQUIRE(eventually([&] { return fs::exists(bench.output); }));
    // In place, or about to be told so; the lock that both take is the export's own.
    session->cancelExport();
    REQUIRE(bench.actor.runUntil([&] { return outcome.calls == 1; }));
    CHECK(outcome.status == AssetExportSession::completed);
    CHECK(readFile(bench.output) == "the sound");
    session->cancelExport();
    CHECK(session->status() == AssetExportSession::completed);
}

TEST_CASE("two workers run at a time, and the others follow in the order in which they came") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench("cat <&3 >>'" + (place.path() / "order").string() + "'\n" + Gate::script(place.path()) +
                "cat <&3 >&4; echo x >&4\n" + goodAnswer);
    std::vector<Outcome> outcomes(4);
    std::vector<std::unique_ptr<AssetExportSession>> sessions;
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        const auto name = std::to_string(i);
        sessions.push_back(bench.start(outcomes[i], bench.directory.file("item/source." + name, name),
                                       bench.directory.path() / ("item/recording" + name)));
    }
    bench.actor.runPosted();
    gate.awaitArrival();
    gate.awaitArrival();
    CHECK(sessions[0]->status() == AssetExportSession::exporting);
    CHECK(sessions[1]->status() == AssetExportSession::exporting);
    CHECK(sessions[2]->status() == AssetExportSession::waiting);
    CHECK(sessions[3]->status() == AssetExportSession::waiting);
    CHECK_FALSE(gate.hasArrival());
    const auto ended = [&] {
        return std::count_if(outcomes.begin(), outcomes.end(), [](const Outcome& o) { return o.calls == 1; });
    };
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return ended() == 1; }));
    gate.awaitArrival();
    CHECK(sessions[2]->status() == AssetExportSession::exporting);
    CHECK(sessions[3]->status() == AssetExportSession::waiting);
    // One that waits can be called off without ever starting.
    sessions[3]->cancelExport();
    gate.letOneGo();
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return ended() == 4; }));
    CHECK(outcomes[3].status == AssetExportSession::cancelled);
    const std::string order = readFile(place.path() / "order");
    CHECK((order == "012" || order == "102"));
}

TEST_CASE("the duration is what the worker says") {
    Bench bench(R"([ "$*" = duration ] || exit 9; echo '{"seconds":12.345678}')");
    CHECK(std::get<double>(bench.duration()) == 12.345678);
}

TEST_CASE("a source without a duration has one that is not a number") {
    Bench bench(R"(echo '{"seconds":null}')");
    CHECK(std::isnan(std::get<double>(bench.duration())));
}

TEST_CASE("a duration that can't be told fails with the worker's error, or with what befell the worker") {
    Bench damaged(R"(echo '{"error":{"code":2,"message":"It isn’t a sound file."}}'; exit 1)");
    CHECK(errorOf(damaged.duration()) ==
          PlatformError(FfmpegMediaFramework::errorDomain, 2, "It isn’t a sound file."));
    Bench crashing("kill -ABRT $$");
    CHECK(errorOf(crashing.duration()).text() == "The audio converter stopped unexpectedly.");
    Bench rambling("echo '{}'");
    CHECK(errorOf(rambling.duration()).code() == FfmpegMediaFramework::answeredRubbish);
    fs::remove(rambling.source);
    CHECK(errorOf(rambling.duration()).text() ==
          "“source.wav” couldn’t be opened: No such file or directory");
}

TEST_CASE("a duration that is called off ends its worker and tells nobody") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()));
    bool told = false;
    const auto cancel =
        bench.framework->loadDuration(bench.source, [&](const Result<double>&) { told = true; });
    bench.actor.runPosted();
    const pid_t worker = gate.awaitArrival();
    cancel();
    cancel();
    bench.framework.reset();
    bench.actor.runPosted();
    CHECK(isGone(worker));
    CHECK_FALSE(told);
    cancel();
}

TEST_CASE("a worker whose starter is killed finds its input at an end, and what it leaves is cleared away") {
    const TemporaryDirectory place;
    const Gate gate(place);
    const std::string arrive = "echo $$ >'" + (place.path() / "arrivals").string() + "'\n";
    Bench bench("echo half >&4\n" + arrive + "cat >/dev/null\n" + arrive);
    std::string starter = CADORA_EXPORT_STARTER;
    std::string worker = bench.directory.path() / "worker";
    std::string source = bench.source;
    std::string output = bench.output;
    char* const arguments[] = {starter.data(), worker.data(), source.data(), output.data(), nullptr};
    pid_t pid = -1;
    REQUIRE(::posix_spawn(&pid, starter.c_str(), nullptr, nullptr, arguments, environ) == 0);
    const pid_t started = gate.awaitArrival();
    CHECK(bench.items().size() == 2);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    CHECK(gate.awaitArrival() == started);
    REQUIRE(eventually([&] { return hasEnded(started); }));
    CHECK(bench.items().size() == 2);
    Bench next(std::string("cat <&3 >&4\n") + goodAnswer);
    next.source = bench.source;
    next.output = bench.output;
    CHECK(next.exportSource().status == AssetExportSession::completed);
    CHECK(bench.items() == std::vector<std::string>{"recording.m4a", "source.wav"});
}

TEST_CASE("the framework may go first: sessions that outlive it stay silent") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()));
    Outcome first;
    Outcome second;
    const auto running = bench.start(first);
    bench.actor.runPosted();
    const pid_t worker = gate.awaitArrival();
    const auto waiting = bench.start(second);
    bench.framework.reset();
    CHECK(isGone(worker));
    running->cancelExport();
    waiting->cancelExport();
    bench.actor.runPosted();
    CHECK(first.calls == 0);
    CHECK(second.calls == 0);
}

TEST_CASE("a handler may release its own session and the others of the same export") {
    const TemporaryDirectory place;
    const Gate gate(place);
    Bench bench(Gate::script(place.path()) + "cat <&3 >&4\n" + goodAnswer);
    std::vector<std::unique_ptr<AssetExportSession>> sessions;
    int calls = 0;
    for (int i = 0; i < 3; ++i) {
        sessions.push_back(bench.shared->makeExportSession(bench.source, preset));
        sessions.back()->setOutputURL(bench.output);
        sessions.back()->setOutputFileType(m4a);
        sessions.back()->exportAsynchronously([&] {
            ++calls;
            sessions.clear();
        });
    }
    bench.actor.runPosted();
    gate.awaitArrival();
    gate.letOneGo();
    REQUIRE(bench.actor.runUntil([&] { return calls > 0; }));
    bench.actor.runPosted();
    CHECK(calls == 1);
}
