#include "hosts/linux/media/worker/Sandbox.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace cadora {

namespace {

constexpr unsigned source = 3;
constexpr unsigned output = 4;

[[noreturn]] void fail(const std::string& step, int errorNumber) {
    throw std::runtime_error(step + ": " + strerrordesc_np(errorNumber));
}

// Landlock's interface, of which the system's headers may know an older version than its kernel.
struct LandlockRuleset {
    std::uint64_t handledFiles;
    std::uint64_t handledNetwork;
    std::uint64_t scoped;
};

constexpr unsigned landlockVersion = 1U << 0;

void forbidFilesAndNetwork() {
    const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, landlockVersion);
    if (version < 1) {
        return; // this kernel hasn't got it; the system call filter stands alone
    }
    // Every right that the version knows, and no rule that would grant one.
    LandlockRuleset ruleset{};
    ruleset.handledFiles = version >= 5 ? 0xffff : version >= 3 ? 0x7fff : version == 2 ? 0x3fff : 0x1fff;
    std::size_t size = sizeof ruleset.handledFiles;
    if (version >= 4) {
        ruleset.handledNetwork = 0x3;
        size += sizeof ruleset.handledNetwork;
    }
    if (version >= 6) {
        ruleset.scoped = 0x3;
        size += sizeof ruleset.scoped;
    }
    const auto descriptor = static_cast<int>(syscall(SYS_landlock_create_ruleset, &ruleset, size, 0));
    if (descriptor < 0) {
        fail("landlock", errno);
    }
    const long result = syscall(SYS_landlock_restrict_self, descriptor, 0);
    const int failed = errno;
    close(descriptor);
    if (result != 0) {
        fail("landlock", failed);
    }
}

class SystemCallFilter {
public:
    SystemCallFilter() : context_(seccomp_init(SCMP_ACT_ERRNO(EPERM))) {
        if (!context_) {
            fail("seccomp", ENOMEM);
        }
    }

    void allow(int call, const std::vector<scmp_arg_cmp>& arguments = {}) {
        add(SCMP_ACT_ALLOW, call, arguments);
    }

    // The C library falls back to an older call.
    void pretendMissing(int call) { add(SCMP_ACT_ERRNO(ENOSYS), call, {}); }

    void load() {
        const int result = seccomp_load(context_.get());
        if (result != 0) {
            fail("seccomp", -result);
        }
    }

private:
    struct Release {
        void operator()(void* context) const { seccomp_release(context); }
    };

    void add(std::uint32_t action, int call, const std::vector<scmp_arg_cmp>& arguments) {
        const int result = seccomp_rule_add_array(context_.get(), action, call,
                                                  static_cast<unsigned>(arguments.size()), arguments.data());
        if (result != 0) {
            fail("seccomp", -result);
        }
    }

    std::unique_ptr<void, Release> context_;
};

scmp_arg_cmp equals(unsigned argument, std::uint64_t value) {
    return {argument, SCMP_CMP_EQ, value, 0};
}

scmp_arg_cmp hasBits(unsigned argument, std::uint64_t mask, std::uint64_t value) {
    return {argument, SCMP_CMP_MASKED_EQ, mask, value};
}

void filterSystemCalls(SandboxAccess access) {
    SystemCallFilter filter;
    filter.allow(SCMP_SYS(read), {equals(0, STDIN_FILENO)});
    filter.allow(SCMP_SYS(write), {equals(0, STDOUT_FILENO)});
    filter.allow(SCMP_SYS(write), {equals(0, STDERR_FILENO)});
    filter.allow(SCMP_SYS(pread64), {equals(0, source)});
    if (access == SandboxAccess::readSourceAndWriteOutput) {
        filter.allow(SCMP_SYS(pread64), {equals(0, output)});
        filter.allow(SCMP_SYS(pwrite64), {equals(0, output)});
    }
    // Memory, but none that could be executed.
    filter.allow(SCMP_SYS(mmap), {hasBits(2, PROT_EXEC, 0), hasBits(3, MAP_ANONYMOUS, MAP_ANONYMOUS)});
    filter.allow(SCMP_SYS(mprotect), {hasBits(2, PROT_EXEC, 0)});
    for (const int call : {SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(brk), SCMP_SYS(madvise)}) {
        filter.allow(call);
    }
    // Threads of this process. The newer call hides its flags behind a pointer.
    filter.pretendMissing(SCMP_SYS(clone3));
    filter.allow(SCMP_SYS(clone), {hasBits(0, CLONE_THREAD | CLONE_VM, CLONE_THREAD | CLONE_VM)});
    for (const int call : {SCMP_SYS(futex), SCMP_SYS(set_robust_list), SCMP_SYS(rseq), SCMP_SYS(sched_yield),
                           SCMP_SYS(sched_getaffinity), SCMP_SYS(gettid), SCMP_SYS(getpid), SCMP_SYS(exit),
                           SCMP_SYS(exit_group), SCMP_SYS(restart_syscall)}) {
        filter.allow(call);
    }
    // Signals to itself, which is how abort() ends.
    filter.allow(SCMP_SYS(tgkill), {equals(0, static_cast<std::uint64_t>(getpid()))});
    for (const int call : {SCMP_SYS(rt_sigprocmask), SCMP_SYS(rt_sigaction), SCMP_SYS(rt_sigreturn),
                           SCMP_SYS(clock_gettime), SCMP_SYS(getrandom)}) {
        filter.allow(call);
    }
    filter.allow(SCMP_SYS(prlimit64), {equals(0, 0)});
    filter.load();
}

constexpr rlim_t memory = rlim_t{768} << 20; // an hour's export takes about 100 MiB

void limit(__rlimit_resource resource, rlim_t soft, rlim_t hard) {
    rlimit current{};
    if (getrlimit(resource, &current) != 0) {
        return;
    }
    const rlimit wanted = {std::min(soft, current.rlim_max), std::min(hard, current.rlim_max)};
    setrlimit(resource, &wanted);
}

rlim_t usedProcessorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<rlim_t>(time.tv_sec);
}

} // namespace

void enterSandbox(SandboxAccess access) {
    const unsigned firstUnused = access == SandboxAccess::readSource ? output : output + 1;
    if (close_range(firstUnused, UINT_MAX, 0) != 0) {
        fail("close_range", errno);
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        fail("no_new_privs", errno);
    }
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    forbidFilesAndNetwork();
    limit(RLIMIT_NOFILE, firstUnused, firstUnused);
    limit(RLIMIT_CORE, 0, 0);
    limit(RLIMIT_DATA, memory, memory);
    filterSystemCalls(access);
}

void limitReading(std::int64_t fileSize) {
    // The slowest decoder needs about a second for 5 MB.
    constexpr std::int64_t bytesPerSecond = 500000;
    limit(RLIMIT_CPU, 60 + static_cast<rlim_t>(fileSize / bytesPerSecond), RLIM_INFINITY);
}

void limitExport(double seconds) {
    // Half of real time, where a processor does thirty times as much; four times the usual bit rate.
    const auto whole = static_cast<rlim_t>(std::clamp(seconds, 0.0, 1e9));
    const rlim_t time = usedProcessorSeconds() + 120 + 2 * whole;
    limit(RLIMIT_CPU, time, time + 10);
    const rlim_t size = (rlim_t{4} << 20) + 128000 * whole;
    limit(RLIMIT_FSIZE, size, size);
}

} // namespace cadora
