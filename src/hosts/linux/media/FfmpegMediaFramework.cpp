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
#include <map>
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

    bool isSameAs(const Source& other) const {
        const struct stat& a = status;
        const struct stat& b = other.status;
        return path == other.path && a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
               a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
    }
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

// One request to a worker, and those who wait for its end. The main actor's, except where it says otherwise.
class FfmpegMediaFramework::Run {
public:
    using Listener = std::function<void(const Result<double>&)>;

    // An empty output asks for the duration.
    Run(Source source, std::filesystem::path output)
        : source_(std::move(source)), output_(std::move(output)) {}

    bool isExport() const { return !output_.empty(); }
    // Not once the output is in place: who asks now may have just deleted it, to have it made afresh.
    bool wouldServe(const Source& source, const std::filesystem::path& output) {
        return !listeners_.empty() && output_ == output && source_.isSameAs(source) && !isInPlace();
    }

    int addListener(Listener listener) {
        listeners_.emplace(++lastListener_, std::move(listener));
        return lastListener_;
    }
    bool removeListener(int listener) { return listeners_.erase(listener) != 0; }
    std::size_t listenerCount() const { return listeners_.size(); }

    // One listener may take others away when it is called.
    void tellListeners(const Result<double>& result) {
        while (!listeners_.empty()) {
            const Listener listener = std::move(listeners_.extract(listeners_.begin()).mapped());
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
    bool isInPlace() {
        const std::lock_guard guard(mutex_);
        return isInPlace_;
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
    std::map<int, Listener> listeners_;
    int lastListener_ = 0;
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

    std::shared_ptr<Run> start(Source source, std::filesystem::path output) {
        waiting_.push_back(std::make_shared<Run>(std::move(source), std::move(output)));
        // Not inside the call: a run that can't start tells its listeners, who are only now about to come.
        actor_.post([weak = weak_from_this()] {
            if (const auto self = weak.lock()) {
                self->startWaiting();
            }
        });
        return waiting_.back();
    }

    // An export that is under way or waits already, from this very source to this output.
    std::shared_ptr<Run> find(const Source& source, const std::filesystem::path& output) const {
        const auto serves = [&](const auto& run) { return run->wouldServe(source, output); };
        if (const auto found = std::find_if(running_.begin(), running_.end(), serves);
            found != running_.end()) {
            return *found;
        }
        const auto found = std::find_if(waiting_.begin(), waiting_.end(), serves);
        return found == waiting_.end() ? nullptr : *found;
    }

    // Takes the listener away, and calls the run off if it was the last. False when the run has come too far
    // for that: the listener stays then and is told its end.
    bool cancel(const std::shared_ptr<Run>& run, int listener) {
        if (run->listenerCount() == 1 && !run->callOff()) {
            return false;
        }
        leave(run, listener);
        return true;
    }

    // The same, but the listener goes in any case.
    void leave(const std::shared_ptr<Run>& run, int listener) {
        if (run->removeListener(listener) && run->listenerCount() == 0) {
            run->callOff();
            std::erase(waiting_, run);
        }
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
                run->tellListeners(failure<double>(
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
        run->tellListeners(result);
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
            workers->leave(run_, listener_);
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
            Source source = openSource(source_);
            run_ = workers->find(source, output_);
            if (!run_) {
                run_ = workers->start(std::move(source), output_);
            }
        } catch (const PlatformError& error) {
            endSoon(failed, error);
            return;
        }
        listener_ = run_->addListener([this](const Result<double>& result) { end(result); });
    }

    void cancelExport() override {
        const auto workers = workers_.lock();
        if (workers && run_ && workers->cancel(run_, listener_)) {
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
    int listener_ = 0;
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
        run = workers_->start(openSource(std::move(source)), {});
    } catch (const PlatformError& error) {
        workers_->actor().post(
            [completion = std::move(completion), error] { completion(failure<double>(error)); });
        return nullptr;
    }
    const int listener = run->addListener(std::move(completion));
    return [weak = std::weak_ptr(workers_), run, listener] {
        if (const auto workers = weak.lock()) {
            workers->leave(run, listener);
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
