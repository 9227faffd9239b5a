#include "hosts/linux/media/worker/Sandbox.h"

#include "fakes/TemporaryDirectory.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <future>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace cadora;
using namespace cadora::test;

namespace {

constexpr std::int64_t sourceSize = 6; // bytes

// Runs something in a process of its own that is locked in, with a source and an output at 3 and 4.
// Gives what it returns, or 1000 and the signal that ended it.
int inside(
    SandboxAccess access, const std::function<int()>& attempt,
    const std::function<void()>& makeThreads = [] {}) {
    const TemporaryDirectory folder;
    const std::string source = folder.file("source", "abcdef").string();
    const std::string output = (folder.path() / "output").string();
    const pid_t pid = fork();
    if (pid == 0) {
        const int in = open(source.c_str(), O_RDONLY);
        const int out = open(output.c_str(), O_RDWR | O_CREAT, 0600);
        const int high[] = {fcntl(in, F_DUPFD, 100), fcntl(out, F_DUPFD, 101)};
        dup2(high[0], 3);
        dup2(high[1], 4);
        try {
            enterSandbox(access, sourceSize, makeThreads);
        } catch (const std::exception&) {
            _exit(250);
        }
        _exit(attempt());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Of an attempt that is to be refused: 0 when it was.
int refused(long result) {
    return result < 0 && (errno == EPERM || errno == EACCES) ? 0 : 1;
}

} // namespace

TEST_CASE("what the worker needs works inside the sandbox") {
    CHECK(inside(SandboxAccess::readSourceAndWriteOutput, [] {
              char byte = 0;
              limitExport(1, sourceSize);
              if (pread(3, &byte, 1, 2) != 1 || byte != 'c' || pwrite(4, "x", 1, 5) != 1 ||
                  pread(4, &byte, 1, 5) != 1 || byte != 'x') {
                  return 1;
              }
              const std::vector<char> memory(64 << 20, 'm');
              return memory.back() == 'm' ? 0 : 2;
          }) == 0);
}

TEST_CASE("no file can be opened, made, looked at, renamed or deleted inside the sandbox") {
    const std::vector<std::function<long()>> attempts = {
        [] { return open("/etc/passwd", O_RDONLY); },
        [] { return open("/tmp/made-inside", O_WRONLY | O_CREAT, 0600); },
        [] { return syscall(SYS_openat2, AT_FDCWD, "/etc/passwd", nullptr, 0); },
        [] { return syscall(SYS_open, "/etc/passwd", O_RDONLY); },
        [] {
            struct stat status{};
            return static_cast<long>(stat("/etc/passwd", &status));
        },
        [] { return static_cast<long>(access("/etc/passwd", R_OK)); },
        [] { return static_cast<long>(unlink("/tmp/no-such-file")); },
        [] { return static_cast<long>(rename("/tmp/a", "/tmp/b")); },
        [] { return static_cast<long>(mkdir("/tmp/made-inside", 0700)); },
        [] { return static_cast<long>(chdir("/")); },
        [] { return syscall(SYS_memfd_create, "x", 0); },
        [] { return static_cast<long>(dup(3)); },
        [] { return static_cast<long>(fcntl(3, F_DUPFD, 10)); },
        [] { return static_cast<long>(pwrite(3, "x", 1, 0)); },
        [] { return static_cast<long>(ftruncate(4, 0)); },
        [] { return syscall(SYS_io_uring_setup, 1, nullptr); },
    };
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        CAPTURE(i);
        CHECK(inside(SandboxAccess::readSourceAndWriteOutput, [&] { return refused(attempts[i]()); }) == 0);
    }
}

TEST_CASE("no socket, program, process or foreign memory is within reach of the sandbox") {
    const pid_t parent = getpid();
    const std::vector<std::function<long()>> attempts = {
        [] { return static_cast<long>(socket(AF_INET, SOCK_STREAM, 0)); },
        [] { return static_cast<long>(socket(AF_UNIX, SOCK_STREAM, 0)); },
        [] {
            int pair[2];
            return static_cast<long>(socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
        },
        [] {
            int pair[2];
            return static_cast<long>(pipe(pair));
        },
        [] {
            char* const none[] = {nullptr};
            return static_cast<long>(execve("/bin/true", none, none));
        },
        [] { return static_cast<long>(fork()); },
        [] { return syscall(SYS_clone3, nullptr, 0); },
        [] {
            return syscall(SYS_clone,
                           CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD | CLONE_SYSVSEM,
                           nullptr, nullptr, nullptr, 0);
        },
        [] { return syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, 0); },
        [parent] { return ptrace(PTRACE_ATTACH, parent, nullptr, nullptr); },
        [parent] { return static_cast<long>(kill(parent, 0)); },
        [parent] { return syscall(SYS_tgkill, parent, parent, 0); },
        [parent] { return syscall(SYS_pidfd_open, parent, 0); },
        [parent] { return syscall(SYS_process_vm_readv, parent, nullptr, 0, nullptr, 0, 0); },
        [parent] {
            struct rlimit limit{};
            return static_cast<long>(prlimit(parent, RLIMIT_CORE, nullptr, &limit));
        },
        [] {
            return reinterpret_cast<long>(
                mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        },
        [] { return reinterpret_cast<long>(mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE, 3, 0)); },
        [] {
            return reinterpret_cast<long>(
                mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        },
        [] {
            return reinterpret_cast<long>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE,
                                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_GROWSDOWN, -1, 0));
        },
        [] {
            void* page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            return static_cast<long>(mprotect(page, 4096, PROT_READ | PROT_EXEC));
        },
        [] { return syscall(SYS_bpf, 0, nullptr, 0); },
        [] { return syscall(SYS_keyctl, 0, 0); },
        [] { return syscall(SYS_unshare, CLONE_NEWUSER); },
        [] { return static_cast<long>(setuid(0)); },
    };
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        CAPTURE(i);
        CHECK(inside(SandboxAccess::readSourceAndWriteOutput, [&] { return refused(attempts[i]()); }) == 0);
    }
}

TEST_CASE("the threads that were made on entering are locked in as well, and no others can be made") {
    std::promise<void> entered;
    std::future<int> result;
    CHECK(inside(
              SandboxAccess::readSource,
              [&] {
                  entered.set_value();
                  return result.get();
              },
              [&] {
                  result = std::async(std::launch::async, [&] {
                      entered.get_future().wait();
                      return refused(open("/etc/passwd", O_RDONLY));
                  });
              }) == 0);
    CHECK(inside(SandboxAccess::readSource, [] {
              try {
                  std::thread([] {}).join();
              } catch (const std::system_error&) {
                  return 0;
              }
              return 1;
          }) == 0);
}

TEST_CASE("who only measures can't write, and finds every other descriptor closed") {
    CHECK(inside(SandboxAccess::readSource, [] { return refused(pwrite(4, "x", 1, 0)); }) == 0);
    CHECK(inside(SandboxAccess::readSource, [] { return refused(pread(100, nullptr, 0, 0)); }) == 0);
}

TEST_CASE("memory beyond any recording's needs isn't given") {
    CHECK(inside(SandboxAccess::readSource, [] {
              void* block = mmap(nullptr, std::size_t{2} << 30, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
              return block == MAP_FAILED && errno == ENOMEM ? 0 : 1;
          }) == 0);
}

TEST_CASE("memory is bounded in sum, and more tightly until the sound was measured") {
    // The most that fits, in MiB, in pieces that are each as small as any.
    const auto available = [] {
        int pieces = 0;
        while (pieces < 240 && mmap(nullptr, std::size_t{4} << 20, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED) {
            ++pieces;
        }
        return pieces;
    };
    CHECK(4 * inside(SandboxAccess::readSourceAndWriteOutput, available) < 100);
    const int measured = 4 * inside(SandboxAccess::readSourceAndWriteOutput, [&] {
                             limitExport(1, sourceSize);
                             return available();
                         });
    CHECK(measured > 200);
    CHECK(measured < 330);
}

TEST_CASE("nothing can be written before the sound was measured") {
    CHECK(inside(SandboxAccess::readSourceAndWriteOutput, [] {
              std::signal(SIGXFSZ, SIG_IGN);
              if (pwrite(4, "x", 1, 0) >= 0 || errno != EFBIG) {
                  return 1;
              }
              limitExport(1, sourceSize);
              return pwrite(4, "x", 1, 0) == 1 ? 0 : 2;
          }) == 0);
}

TEST_CASE("even a worker that was taken over can't lift the bounds of processor time and output") {
    CHECK(inside(SandboxAccess::readSourceAndWriteOutput, [] {
              struct rlimit time{};
              struct rlimit size{};
              getrlimit(RLIMIT_CPU, &time);
              getrlimit(RLIMIT_FSIZE, &size);
              size.rlim_cur = size.rlim_max;
              std::signal(SIGXFSZ, SIG_IGN);
              return time.rlim_max < 600 && setrlimit(RLIMIT_FSIZE, &size) == 0 &&
                             pwrite(4, "x", 1, off_t{1} << 30) < 0 && errno == EFBIG
                         ? 0
                         : 1;
          }) == 0);
}

TEST_CASE("processor time and output are bounded by the length of the sound") {
    CHECK(inside(SandboxAccess::readSourceAndWriteOutput, [] {
              limitExport(60, sourceSize);
              struct rlimit time{};
              struct rlimit size{};
              getrlimit(RLIMIT_CPU, &time);
              getrlimit(RLIMIT_FSIZE, &size);
              if (time.rlim_cur != 135 || time.rlim_max != 145) {
                  return 1;
              }
              std::signal(SIGXFSZ, SIG_IGN);
              const auto beyond = static_cast<off_t>(size.rlim_cur);
              return beyond < 20000000 && pwrite(4, "x", 1, beyond) < 0 && errno == EFBIG ? 0 : 2;
          }) == 0);
}
