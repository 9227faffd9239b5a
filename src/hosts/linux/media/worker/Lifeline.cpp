#include "hosts/linux/media/worker/Lifeline.h"

#include "hosts/linux/media/worker/Answer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace cadora {

namespace {

std::atomic<unsigned> progress{0};

// For the signal handlers, which can't make texts.
std::string stuckAnswer;
std::string tooLongAnswer;

void answerAndEnd(const std::string& answer) {
    const ssize_t written = write(STDOUT_FILENO, answer.data(), answer.size());
    _exit(written == static_cast<ssize_t>(answer.size()) ? 1 : 2);
}

void onTimer(int) {
    // The first period may have begun just before the last progress.
    static unsigned seen = 0;
    static int silentPeriods = 0;
    const unsigned now = progress.load(std::memory_order_relaxed);
    silentPeriods = now == seen ? silentPeriods + 1 : 0;
    seen = now;
    if (silentPeriods == 2) {
        answerAndEnd(stuckAnswer);
    }
}

void onProcessorLimit(int) {
    answerAndEnd(tooLongAnswer);
}

void awaitEndOfInput() {
    char byte;
    ssize_t count;
    do {
        count = read(STDIN_FILENO, &byte, 1);
    } while (count > 0 || (count < 0 && errno == EINTR));
    _exit(2);
}

} // namespace

Lifeline::Lifeline() : sign_(Sign::deathOfParent) {
    struct stat status{};
    if (fstat(STDIN_FILENO, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode))) {
        sign_ = Sign::endOfInput;
        return;
    }
    const pid_t parent = getppid();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(2);
    }
}

void Lifeline::watch() const {
    if (sign_ == Sign::endOfInput) {
        std::thread(awaitEndOfInput).detach();
    }
}

void yieldToTheUser() {
    constexpr int niceness = 10;
    setpriority(PRIO_PROCESS, 0, std::max(niceness, getpriority(PRIO_PROCESS, 0)));
    constexpr int wholeProcess = 1;
    constexpr int bestEffort = 2 << 13;
    constexpr int lowest = 7;
    syscall(SYS_ioprio_set, wholeProcess, 0, bestEffort | lowest);
}

void endWhenStuck(std::chrono::milliseconds period) {
    stuckAnswer =
        errorAnswer({ExportFailure::outOfResources,
                     "The file couldn’t be converted: the work on it got stuck. It is probably damaged."});
    tooLongAnswer = errorAnswer({ExportFailure::outOfResources,
                                 "The file asks for more time than any recording of its length needs; it is "
                                 "probably damaged."});
    struct sigaction action{};
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    action.sa_handler = &onTimer;
    sigaction(SIGPROF, &action, nullptr);
    action.sa_handler = &onProcessorLimit;
    sigaction(SIGXCPU, &action, nullptr);
    // Too large an output is to be an error of the write that meets it.
    action.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &action, nullptr);
    itimerval timer{};
    timer.it_interval.tv_sec = period.count() / 1000;
    timer.it_interval.tv_usec = period.count() % 1000 * 1000;
    timer.it_value = timer.it_interval;
    setitimer(ITIMER_PROF, &timer, nullptr);
}

void noteProgress() {
    progress.fetch_add(1, std::memory_order_relaxed);
}

} // namespace cadora
