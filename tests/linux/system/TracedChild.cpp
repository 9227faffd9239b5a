#include "linux/system/TracedChild.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace cadora::test {

namespace {

namespace fs = std::filesystem;

constexpr int stoppedAtCall = SIGTRAP | 0x80;

class Reader {
public:
    Reader(const SystemCall& call, const std::string& root) : call_(call), root_(root) {}

    std::string ofDescriptor(int argument) const {
        const auto number = std::to_string(static_cast<int>(call_.arguments[argument]));
        std::error_code ignored;
        return fs::read_symlink("/proc/" + std::to_string(call_.process) + "/fd/" + number, ignored);
    }

    // A path argument, and the folder descriptor that it is relative to; none for the current folder.
    std::string path(int argument, int folderArgument = -1) const {
        const std::string text = string(call_.arguments[argument]);
        return folderArgument < 0 || text.starts_with('/') ? text : ofDescriptor(folderArgument) + "/" + text;
    }

    // Empty for what lies elsewhere.
    std::string below(const std::string& path) const {
        const fs::path name = path;
        if (name.extension() == ".tmp" && name.filename().native().starts_with('.')) {
            return below(name.parent_path() / "TEMPORARY");
        }
        return path == root_                   ? "."
               : path.starts_with(root_ + "/") ? path.substr(root_.size() + 1)
                                               : std::string();
    }

private:
    std::string string(std::uint64_t address) const {
        std::ifstream memory("/proc/" + std::to_string(call_.process) + "/mem", std::ios::binary);
        memory.seekg(static_cast<std::streamoff>(address));
        std::string text;
        std::getline(memory, text, '\0');
        return text;
    }

    const SystemCall& call_;
    const std::string& root_;
};

std::optional<std::string> changeOf(const SystemCall& call, const Reader& reader) {
    const auto told = [&](const char* verb, const std::string& path) -> std::optional<std::string> {
        const std::string name = reader.below(path);
        return name.empty() ? std::nullopt : std::optional(verb + (" " + name));
    };
    switch (call.number) {
#ifdef SYS_mkdir
    case SYS_mkdir:
        return told("make", reader.path(0));
    case SYS_rmdir:
    case SYS_unlink:
        return told("remove", reader.path(0));
#endif
    case SYS_mkdirat:
        return told("make", reader.path(1, 0));
    case SYS_unlinkat:
        return told("remove", reader.path(1, 0));
    case SYS_openat:
        return (call.arguments[2] & O_CREAT) != 0 ? told("make", reader.path(1, 0)) : std::nullopt;
    case SYS_renameat: {
        const auto from = told("rename", reader.path(1, 0));
        return from ? std::optional(*from + " to " + reader.below(reader.path(3, 2))) : std::nullopt;
    }
    case SYS_fsync:
    case SYS_fdatasync:
        return told("sync", reader.ofDescriptor(0));
    case SYS_write:
    case SYS_pwrite64:
    case SYS_ftruncate:
        return told("fill", reader.ofDescriptor(0));
    case SYS_copy_file_range:
        return told("fill", reader.ofDescriptor(2));
    case SYS_ioctl:
        return call.arguments[1] == FICLONE ? told("fill", reader.ofDescriptor(0)) : std::nullopt;
    default:
        return std::nullopt;
    }
}

// The stopped child goes on until it stops again. False when it has ended.
bool goOn(pid_t child, int signal, int& status) {
    if (::ptrace(PTRACE_SYSCALL, child, nullptr, signal) != 0 || ::waitpid(child, &status, 0) != child) {
        throw std::runtime_error("the child can't be traced");
    }
    return WIFSTOPPED(status);
}

} // namespace

std::optional<std::string> SystemCall::changeBelow(const std::string& root) const {
    return changeOf(*this, Reader(*this, root));
}

bool runTraced(const std::function<void()>& operation, const std::function<Next(const SystemCall&)>& look) {
    // What waits to be written would be written by the child, too.
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0 || ::raise(SIGSTOP) != 0) {
            ::_exit(2);
        }
        operation();
        ::_exit(0);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFSTOPPED(status) ||
        ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD) != 0) {
        throw std::runtime_error("no child can be traced");
    }
    int signal = 0;
    while (goOn(child, signal, status)) {
        signal = WSTOPSIG(status) == stoppedAtCall ? 0 : WSTOPSIG(status);
        __ptrace_syscall_info info{};
        if (signal != 0 || ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0 ||
            info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        SystemCall call{child, static_cast<long>(info.entry.nr), {}};
        std::copy_n(info.entry.args, call.arguments.size(), call.arguments.begin());
        if (look(call) == Next::kill) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            return false;
        }
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace cadora::test
