#include "hosts/linux/media/worker/Sandbox.h"

#include "hosts/linux/media/worker/Bounds.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
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
        const int result = seccomp_rule_add_array(context_.get(), SCMP_ACT_ALLOW, call,
                                                  static_cast<unsigned>(arguments.size()), arguments.data());
        if (result != 0) {
            fail("seccomp", -result);
        }
    }

    // For all threads of this process.
    void load() {
        int result = seccomp_attr_set(context_.get(), SCMP_FLTATR_CTL_TSYNC, 1);
        result = result != 0 ? result : seccomp_load(context_.get());
        if (result != 0) {
            fail("seccomp", -result);
        }
    }

private:
    struct Release {
        void operator()(void* context) const { seccomp_release(context); }
    };

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
    filter.allow(SCMP_SYS(mmap),
                 {hasBits(2, PROT_EXEC, 0),
                  hasBits(3, MAP_PRIVATE | MAP_SHARED | MAP_ANONYMOUS | MAP_GROWSDOWN | MAP_HUGETLB,
                          MAP_PRIVATE | MAP_ANONYMOUS)});
    filter.allow(SCMP_SYS(mprotect), {hasBits(2, PROT_EXEC, 0)});
    for (const int call : {SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(brk), SCMP_SYS(madvise)}) {
        filter.allow(call);
    }
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

void limit(__rlimit_resource resource, std::int64_t soft, std::int64_t hard) {
    rlimit current{};
    if (getrlimit(resource, &current) != 0) {
        fail("getrlimit", errno);
    }
    const rlimit wanted = {std::min(static_cast<rlim_t>(soft), current.rlim_max),
                           std::min(static_cast<rlim_t>(hard), current.rlim_max)};
    if (setrlimit(resource, &wanted) != 0) {
        fail("setrlimit", errno);
    }
}

// In bytes, of which most are the libraries' and never touched.
std::int64_t addressSpace(std::istream& counts) {
    std::int64_t pages = 0;
    if (!(counts >> pages)) {
        fail("/proc/self/statm", EIO);
    }
    return pages * sysconf(_SC_PAGESIZE);
}

void limitBySource(std::int64_t sourceSize, std::int64_t own) {
    limit(RLIMIT_AS, own + measuringMemory(sourceSize), own + largestMemory(sourceSize));
    limit(RLIMIT_CPU, measuringTime(sourceSize), longestTime(sourceSize));
    limit(RLIMIT_FSIZE, 0, largestOutput(sourceSize));
}

std::int64_t usedProcessorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time.tv_sec;
}

} // namespace

void enterSandbox(SandboxAccess access, std::int64_t sourceSize, const std::function<void()>& makeThreads) {
    const unsigned firstUnused = access == SandboxAccess::readSource ? output : output + 1;
    if (close_range(firstUnused, UINT_MAX, 0) != 0) {
        fail("close_range", errno);
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        fail("no_new_privs", errno);
    }
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    std::ifstream memoryCounts("/proc/self/statm");
    forbidFilesAndNetwork(); // concerns this thread and those that it makes
    makeThreads();
    limitBySource(sourceSize, addressSpace(memoryCounts));
    memoryCounts.close();
    limit(RLIMIT_NOFILE, firstUnused, firstUnused);
    limit(RLIMIT_CORE, 0, 0);
    filterSystemCalls(access);
}

void limitExport(double seconds, std::int64_t sourceSize) {
    rlimit space{};
    getrlimit(RLIMIT_AS, &space);
    space.rlim_cur = space.rlim_max;
    setrlimit(RLIMIT_AS, &space);
    const std::int64_t time = usedProcessorSeconds() + exportTime(seconds);
    limit(RLIMIT_CPU, time, time + 10);
    const std::int64_t size = outputSize(seconds, sourceSize);
    limit(RLIMIT_FSIZE, size, size);
}

} // namespace cadora
