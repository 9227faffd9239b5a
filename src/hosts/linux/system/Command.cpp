#include "hosts/linux/system/Command.h"

#include "hosts/linux/system/PosixFile.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/wait.h>

// This system header does not say itself that it is C.
extern "C" {
#include <sys/pidfd.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <optional>

namespace cadora {

namespace {

using posix::retrying;
using SteadyClock = std::chrono::steady_clock;

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;

    bool open() {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            return false;
        }
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
        return true;
    }
};

// The child of one command, with this side's ends of its pipes.
struct Child {
    pid_t pid = -1;
    FileDescriptor process;
    FileDescriptor inputEnd; // held only so that it ends with this process
    FileDescriptor output;
    FileDescriptor diagnostics;
};

class SpawnSettings {
public:
    SpawnSettings() {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        sigset_t signals;
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        ::posix_spawnattr_setflags(&attributes_,
                                   POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    // The descriptors become 0, 1, 2 and so on; all others are closed.
    int hand(const std::vector<FileDescriptor>& descriptors) {
        int code = ::posix_spawn_file_actions_addchdir_np(&actions_, "/");
        int number = 0;
        for (const FileDescriptor& descriptor : descriptors) {
            code = code != 0 ? code : ::posix_spawn_file_actions_adddup2(&actions_, descriptor.get(), number);
            ++number;
        }
        return code != 0 ? code : ::posix_spawn_file_actions_addclosefrom_np(&actions_, number);
    }

    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

// Ends the process, if it has not ended, and what is left of its group, which is named after it; the name is
// theirs until the process has been waited for.
siginfo_t end(pid_t pid) {
    ::kill(-pid, SIGKILL);
    siginfo_t info{};
    retrying([&] { return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED); });
    return info;
}

// 0 or an errno value.
int start(const Command& command, Child& child) {
    Pipe input;
    Pipe output;
    Pipe diagnostics;
    if (!input.open() || !output.open() || !diagnostics.open()) {
        return errno;
    }
    std::vector<int> given = {input.readEnd.get(), output.writeEnd.get(), diagnostics.writeEnd.get()};
    given.insert(given.end(), command.descriptors.begin(), command.descriptors.end());
    // Above the numbers that they are to have in the child, none is overwritten before its turn.
    std::vector<FileDescriptor> handed;
    for (const int descriptor : given) {
        handed.emplace_back(::fcntl(descriptor, F_DUPFD_CLOEXEC, static_cast<int>(given.size())));
        if (!handed.back()) {
            return errno;
        }
    }
    std::string program = command.program.native();
    std::vector<std::string> texts = command.arguments;
    std::vector<char*> arguments = {program.data()};
    for (std::string& text : texts) {
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);
    std::array<char*, 1> environment = {nullptr};

    SpawnSettings settings;
    if (const int code = settings.hand(handed); code != 0) {
        return code;
    }
    if (const int code = ::posix_spawn(&child.pid, program.c_str(), settings.actions(), settings.attributes(),
                                       arguments.data(), environment.data());
        code != 0) {
        return code;
    }
    child.inputEnd = std::move(input.writeEnd);
    child.output = std::move(output.readEnd);
    child.diagnostics = std::move(diagnostics.readEnd);
    ::fcntl(child.output.get(), F_SETFL, O_NONBLOCK);
    ::fcntl(child.diagnostics.get(), F_SETFL, O_NONBLOCK);
    child.process = FileDescriptor(::pidfd_open(child.pid, 0));
    if (!child.process) {
        const int code = errno;
        end(child.pid);
        return code;
    }
    return 0;
}

// Takes what the pipe holds right now and keeps at most `limit` bytes of it all. Closes the pipe at its end.
void take(FileDescriptor& pipe, std::string& kept, std::size_t limit) {
    std::array<char, 4096> buffer;
    // What is left over after a few rounds waits for the next call, so that a flood can't hold this one.
    for (int round = 0; pipe && round < 16; ++round) {
        const ssize_t count = retrying([&] { return ::read(pipe.get(), buffer.data(), buffer.size()); });
        if (count < 0 && errno == EAGAIN) {
            return;
        }
        if (count <= 0) {
            pipe.reset();
            return;
        }
        kept.append(buffer.data(), std::min(static_cast<std::size_t>(count), limit - kept.size()));
    }
}

// A number that changes whenever the process does anything that counts as progress: bytes read and written,
// so that one that computes in a circle hangs, too. A process that hides those shows its processor time.
std::uint64_t progress(pid_t pid) {
    std::uint64_t sum = 0;
    std::ifstream counters("/proc/" + std::to_string(pid) + "/io");
    std::string name;
    std::uint64_t value = 0;
    while (counters >> name >> value) {
        sum += value;
    }
    clockid_t clock{};
    timespec time{};
    if (name.empty() && ::clock_getcpuclockid(pid, &clock) == 0 && ::clock_gettime(clock, &time) == 0) {
        sum =
            static_cast<std::uint64_t>(time.tv_sec) * 1000000000U + static_cast<std::uint64_t>(time.tv_nsec);
    }
    return sum;
}

int millisecondsUntil(SteadyClock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

// Sleeps until the child ends, or until there is a reason to end it.
std::optional<CommandOutcome::End> watch(Child& child, const Command& command, const StopSignal& stop,
                                         CommandOutcome& outcome) {
    std::uint64_t lastProgress = progress(child.pid);
    const auto end = SteadyClock::now() + command.timeLimit;
    auto deadline = std::min(end, SteadyClock::now() + command.stallLimit);
    while (true) {
        std::array<pollfd, 4> events = {
            pollfd{child.process.get(), POLLIN, 0}, pollfd{stop.descriptor(), POLLIN, 0},
            pollfd{child.output.get(), POLLIN, 0}, pollfd{child.diagnostics.get(), POLLIN, 0}};
        if (::poll(events.data(), events.size(), millisecondsUntil(deadline)) < 0) {
            continue;
        }
        if (events[1].revents != 0) {
            return CommandOutcome::End::stopped;
        }
        take(child.output, outcome.output, longestCommandOutput + 1);
        take(child.diagnostics, outcome.diagnostics, longestCommandDiagnostics);
        if (outcome.output.size() > longestCommandOutput) {
            return CommandOutcome::End::overflowed;
        }
        if (events[0].revents != 0) {
            return std::nullopt;
        }
        if (SteadyClock::now() >= end) {
            return CommandOutcome::End::overran;
        }
        if (SteadyClock::now() >= deadline) {
            const std::uint64_t now = progress(child.pid);
            if (now == lastProgress) {
                return CommandOutcome::End::stalled;
            }
            lastProgress = now;
            deadline = std::min(end, SteadyClock::now() + command.stallLimit);
        }
    }
}

} // namespace

StopSignal::StopSignal() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void StopSignal::request() const {
    const std::uint64_t one = 1;
    retrying([&] { return ::write(event_.get(), &one, sizeof one); });
}

CommandOutcome runCommand(const Command& command, const StopSignal& stop) {
    CommandOutcome outcome;
    Child child;
    outcome.status = stop.descriptor() < 0 ? EMFILE : start(command, child);
    if (outcome.status != 0) {
        return outcome;
    }
    const auto reason = watch(child, command, stop, outcome);
    const siginfo_t info = end(child.pid);
    if (reason) {
        outcome.end = *reason;
        return outcome;
    }
    outcome.end = info.si_code == CLD_EXITED ? CommandOutcome::End::exited : CommandOutcome::End::signalled;
    outcome.status = info.si_status;
    return outcome;
}

} // namespace cadora
