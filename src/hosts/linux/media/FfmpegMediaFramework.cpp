#include "hosts/linux/media/FfmpegMediaFramework.h"

#include "base/Json.h"
#include "base/UTF8.h"
#include "hosts/linux/system/Command.h"
#include "hosts/linux/system/PosixError.h"
#include "hosts/linux/system/PosixFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cassert>
#include <csignal>
#include <deque>
#include <limits>
#include <mutex>
#include <sstream>
#include <system_error>
#include <thread>
#include <utility>

namespace cadora {

namespace {

constexpr std::string_view presetAppleM4A = "AVAssetExportPresetAppleM4A";
constexpr std::string_view fileTypeAppleM4A = "AVFileTypeAppleM4A";

PlatformError workerError(FfmpegMediaFramework::ErrorCode code, std::string message) {
    return {FfmpegMediaFramework::errorDomain, code, std::move(message)};
}

PlatformError rubbishError() {
    return workerError(FfmpegMediaFramework::answeredRubbish,
                       "The audio converter gave an answer that makes no sense.");
}

PlatformError cancellationError() {
    return workerError(FfmpegMediaFramework::exportCancelled, "The conversion was cancelled.");
}

// One source file, held open so that it stays the same whatever is renamed meanwhile.
struct Source {
    std::filesystem::path path;
    FileDescriptor file;
    struct stat status{};
};

Source openSource(std::filesystem::path path) {
    constexpr const char* notOpened = "couldn’t be opened";
    Source source{std::move(path), {}, {}};
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    source.file = FileDescriptor(posix::retrying([&] { return ::open(source.path.c_str(), flags); }));
    if (!source.file || ::fstat(source.file.get(), &source.status) != 0) {
        throw posixError(errno, source.path, notOpened);
    }
    if (S_ISDIR(source.status.st_mode)) {
        throw posixError(EISDIR, source.path, notOpened, "it is a folder");
    }
    if (!S_ISREG(source.status.st_mode)) {
        throw posixError(ENOTSUP, source.path, notOpened, "it is not a file");
    }
    return source;
}

// The error form of an answer.
PlatformError reportedError(const json::Value& answer) {
    const auto found = answer.find("error");
    if (found == answer.end()) {
        throw json::DecodingError("there is no error in it");
    }
    json::requireObject(*found, "error");
    return {FfmpegMediaFramework::errorDomain, json::required<std::int64_t>(*found, "code"),
            json::required<std::string>(*found, "message")};
}

// The seconds that the answer tells; an export's must tell what was written, too.
double reportedSeconds(const json::Value& answer, bool isExport) {
    if (!answer.contains("seconds")) {
        throw json::DecodingError("“seconds” is missing");
    }
    const auto seconds = json::optional<double>(answer, "seconds");
    if (isExport && (json::required<std::int64_t>(answer, "samples") <= 0 ||
                     json::required<std::int64_t>(answer, "rate") <= 0)) {
        throw json::DecodingError("nothing was exported");
    }
    return seconds.value_or(std::numeric_limits<double>::quiet_NaN());
}

// What the worker's end means. Throws the error, if it is one.
double secondsOf(const CommandOutcome& outcome, bool isExport) {
    using End = CommandOutcome::End;
    switch (outcome.end) {
    case End::didNotStart:
        throw workerError(FfmpegMediaFramework::couldNotStart,
                          "The audio converter couldn’t be started: " +
                              std::generic_category().message(outcome.status) + ".");
    case End::stopped:
        throw cancellationError();
    case End::stalled:
        throw workerError(FfmpegMediaFramework::stoppedResponding, "The audio converter stopped responding.");
    case End::overran:
        throw workerError(FfmpegMediaFramework::tookTooLong, "The audio converter took too long.");
    case End::overflowed:
        throw rubbishError();
    case End::signalled:
        break;
    case End::exited:
        if (outcome.status != 0 && outcome.status != 1) {
            break;
        }
        try {
            const json::Value answer = json::parse(outcome.output);
            json::requireObject(answer, "answer");
            if (outcome.status == 0) {
                return reportedSeconds(answer, isExport);
            }
            throw reportedError(answer);
        } catch (const json::DecodingError&) {
            throw rubbishError();
        }
    }
    throw workerError(FfmpegMediaFramework::stoppedUnexpectedly, "The audio converter stopped unexpectedly.");
}

void logOutcome(SystemLog& log, const CommandOutcome& outcome) {
    using End = CommandOutcome::End;
    const std::string prefix = "[Cadora Helper] cadora-export: ";
    std::istringstream lines(outcome.diagnostics);
    for (std::string line; std::getline(lines, line);) {
        log.log(prefix + repairedUTF8(line));
    }
    if (outcome.end == End::signalled) {
        log.log(prefix + "ended by signal " + std::to_string(outcome.status));
    } else if (outcome.end == End::exited && outcome.status > 1) {
        log.log(prefix + "ended with exit code " + std::to_string(outcome.status));
    } else if (outcome.end == End::stalled) {
        log.log(prefix + "ended because it made no progress");
    } else if (outcome.end == End::overran) {
        log.log(prefix + "ended because its time was up");
    }
}

} // namespace

// One request to a worker, and who waits for its end. The main actor's, except where it says otherwise.
class FfmpegMediaFramework::Run {
public:
    using Listener = std::function<void(const Result<double>&)>;

    // An empty output asks for the duration.
    Run(Source source, std::filesystem::path output, Listener listener)
        : source_(std::move(source)), output_(std::move(output)), listener_(std::move(listener)) {}

    bool isExport() const { return !output_.empty(); }

    void removeListener() { listener_ = nullptr; }
    void tellListener(const Result<double>& result) {
        if (const auto listener = std::exchange(listener_, nullptr)) {
            listener(result);
        }
    }

    bool isStarted() const { return isStarted_; }
    void setStarted() { isStarted_ = true; }

    // False when it is too late, since the output is in place.
    bool callOff() {
        const std::lock_guard guard(mutex_);
        if (isInPlace_) {
            return false;
        }
        isCalledOff_ = true;
        stop_.request();
        return true;
    }

    // On the run's own thread.
    Result<double> perform(const std::filesystem::path& worker, const Limits& limits, SystemLog& log) {
        try {
            return isExport() ? exportSource(worker, limits, log)
                              : runWorker(commandFor(worker, "duration", limits), log);
        } catch (...) {
            return std::current_exception();
        }
    }

    std::thread thread;

private:
    Command commandFor(const std::filesystem::path& worker, const char* verb, const Limits& limits) const {
        return {worker, {verb}, {source_.file.get()}, limits.stall, limits.timeFor(source_.status.st_size)};
    }

    double runWorker(const Command& command, SystemLog& log) const {
        const CommandOutcome outcome = runCommand(command, stop_);
        logOutcome(log, outcome);
        return secondsOf(outcome, isExport());
    }

    double exportSource(const std::filesystem::path& worker, const Limits& limits, SystemLog& log) {
        const auto require = [&](int code) {
            if (code != 0) {
                throw posixError(code, output_, "couldn’t be written");
            }
        };
        const auto [folderPath, name] = posix::placeOf(output_);
        const FileDescriptor folder = posix::openFolder(AT_FDCWD, folderPath);
        require(folder ? 0 : errno);
        posix::TemporaryFile::removeAbandoned(folder.get(), name);
        const auto file = posix::TemporaryFile::create(folder.get(), name);
        require(file ? 0 : errno);

        Command command = commandFor(worker, "export", limits);
        command.descriptors.push_back(file->get());
        const double seconds = runWorker(command, log);
        struct stat written{};
        require(::fstat(file->get(), &written) == 0 ? 0 : errno);
        if (written.st_size == 0) {
            throw rubbishError();
        }
        require(file->sync());
        {
            const std::lock_guard guard(mutex_);
            if (isCalledOff_) {
                throw cancellationError();
            }
            require(file->moveIntoPlace());
            isInPlace_ = true;
        }
        if (const int code = posix::syncFolder(folder.get()); code != 0) {
            posix::removeTree(folder.get(), name);
            require(code);
        }
        return seconds;
    }

    Source source_;
    std::filesystem::path output_;
    Listener listener_;
    bool isStarted_ = false;

    StopSignal stop_;
    std::mutex mutex_;
    bool isCalledOff_ = false;
    bool isInPlace_ = false;
};

// The runs under way and those that wait for their turn. Main actor only.
class FfmpegMediaFramework::Workers : public std::enable_shared_from_this<Workers> {
public:
    Workers(MainActor& actor, SystemLog& log, std::filesystem::path worker, Limits limits)
        : actor_(actor), log_(log), worker_(std::move(worker)), limits_(limits) {}
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    ~Workers() {
        for (const auto& run : running_) {
            run->callOff();
        }
        for (const auto& run : running_) {
            run->thread.join();
        }
    }

    MainActor& actor() { return actor_; }

    std::shared_ptr<Run> start(Source source, std::filesystem::path output, Run::Listener listener) {
        waiting_.push_back(std::make_shared<Run>(std::move(source), std::move(output), std::move(listener)));
        // Not inside the call: a run that can't start tells its listener, who learns of the run only now.
        actor_.post([weak = weak_from_this()] {
            if (const auto self = weak.lock()) {
                self->startWaiting();
            }
        });
        return waiting_.back();
    }

    // Takes the listener away and calls the run off. False when the run has come too far for that: the
    // listener stays then and is told its end.
    bool cancel(const std::shared_ptr<Run>& run) {
        if (!run->callOff()) {
            return false;
        }
        leave(run);
        return true;
    }

    // The same, but the listener goes in any case.
    void leave(const std::shared_ptr<Run>& run) {
        run->removeListener();
        run->callOff();
        std::erase(waiting_, run);
    }

private:
    void startWaiting() {
        while (running_.size() < limits_.workers && !waiting_.empty()) {
            const auto run = std::move(waiting_.front());
            waiting_.pop_front();
            try {
                run->thread = std::thread([run, worker = worker_, limits = limits_, &log = log_,
                                           &actor = actor_, weak = weak_from_this()] {
                    auto result = run->perform(worker, limits, log);
                    actor.post([weak, run, result = std::move(result)] {
                        if (const auto self = weak.lock()) {
                            self->finish(run, result);
                        }
                    });
                });
            } catch (const std::system_error& error) {
                run->tellListener(failure<double>(
                    workerError(couldNotStart,
                                "The audio converter couldn’t be started: " + error.code().message() + ".")));
                continue;
            }
            run->setStarted();
            running_.push_back(run);
        }
    }

    void finish(const std::shared_ptr<Run>& run, const Result<double>& result) {
        run->thread.join();
        std::erase(running_, run);
        startWaiting();
        run->tellListener(result);
    }

    MainActor& actor_;
    SystemLog& log_;
    std::filesystem::path worker_;
    Limits limits_;
    std::vector<std::shared_ptr<Run>> running_;
    std::deque<std::shared_ptr<Run>> waiting_;
};

class FfmpegMediaFramework::Session : public AssetExportSession {
public:
    Session(std::weak_ptr<Workers> workers, std::filesystem::path source)
        : workers_(std::move(workers)), source_(std::move(source)) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    ~Session() override {
        if (const auto workers = workers_.lock(); workers && run_) {
            workers->leave(run_);
        }
    }

    void setOutputURL(std::filesystem::path output) override { output_ = std::move(output); }
    void setOutputFileType(std::string type) override { type_ = std::move(type); }

    void exportAsynchronously(std::function<void()> handler) override {
        assert(!handler_ && outcome_ == unknown && "a session exports once");
        handler_ = std::move(handler);
        const auto workers = workers_.lock();
        if (!workers) {
            return;
        }
        if (type_ != fileTypeAppleM4A || output_.empty()) {
            endSoon(failed,
                    workerError(
                        unsupportedFileType,
                        "The recording couldn’t be converted: the audio converter writes only M4A files."));
            return;
        }
        try {
            run_ = workers->start(openSource(source_), output_,
                                  [this](const Result<double>& result) { end(result); });
        } catch (const PlatformError& error) {
            endSoon(failed, error);
        }
    }

    void cancelExport() override {
        const auto workers = workers_.lock();
        if (workers && run_ && workers->cancel(run_)) {
            run_.reset();
            endSoon(cancelled, cancellationError());
        }
    }

    int status() const override {
        if (outcome_ != unknown || !run_) {
            return outcome_;
        }
        return run_->isStarted() ? exporting : waiting;
    }

    std::optional<PlatformError> error() const override { return error_; }

private:
    void end(const Result<double>& result) {
        run_.reset();
        outcome_ = completed;
        if (const auto* thrown = std::get_if<std::exception_ptr>(&result)) {
            outcome_ = failed;
            try {
                std::rethrow_exception(*thrown);
            } catch (const PlatformError& error) {
                error_ = error;
            } catch (const std::exception& error) {
                error_ = workerError(stoppedUnexpectedly, error.what());
            }
        }
        // The handler may release this session.
        const auto handler = std::exchange(handler_, nullptr);
        handler();
    }

    void endSoon(Status outcome, PlatformError error) {
        outcome_ = outcome;
        error_ = std::move(error);
        if (const auto workers = workers_.lock()) {
            workers->actor().post(
                [handler = std::exchange(handler_, nullptr), alive = std::weak_ptr(alive_)] {
                    if (alive.lock()) {
                        handler();
                    }
                });
        }
    }

    std::weak_ptr<Workers> workers_;
    std::filesystem::path source_;
    std::filesystem::path output_;
    std::string type_;
    std::function<void()> handler_;
    std::shared_ptr<Run> run_;
    Status outcome_ = unknown;
    std::optional<PlatformError> error_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>();
};

std::chrono::milliseconds FfmpegMediaFramework::Limits::timeFor(std::int64_t sourceSize) const {
    const std::int64_t most = std::chrono::duration_cast<std::chrono::seconds>(longestTime).count();
    return std::min(longestTime, time + std::chrono::seconds(std::min(sourceSize / bytesPerSecond, most)));
}

FfmpegMediaFramework::FfmpegMediaFramework(MainActor& actor, SystemLog& log, std::filesystem::path worker,
                                           Limits limits)
    : workers_(std::make_shared<Workers>(actor, log, std::filesystem::absolute(worker), limits)) {}

FfmpegMediaFramework::FfmpegMediaFramework(MainActor& actor, SystemLog& log, std::filesystem::path worker)
    : FfmpegMediaFramework(actor, log, std::move(worker), Limits()) {}

FfmpegMediaFramework::~FfmpegMediaFramework() = default;

CancelAction FfmpegMediaFramework::loadDuration(std::filesystem::path source, Completion<double> completion) {
    std::shared_ptr<Run> run;
    try {
        run = workers_->start(openSource(std::move(source)), {}, completion);
    } catch (const PlatformError& error) {
        workers_->actor().post(
            [completion = std::move(completion), error] { completion(failure<double>(error)); });
        return nullptr;
    }
    return [weak = std::weak_ptr(workers_), run] {
        if (const auto workers = weak.lock()) {
            workers->leave(run);
        }
    };
}

std::unique_ptr<AssetExportSession> FfmpegMediaFramework::makeExportSession(std::filesystem::path source,
                                                                            std::string presetName) {
    if (presetName != presetAppleM4A) {
        return nullptr;
    }
    return std::make_unique<Session>(workers_, std::move(source));
}

} // namespace cadora
