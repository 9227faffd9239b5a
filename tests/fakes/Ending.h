#pragma once

#include <csignal>
#include <cstdlib>
#include <functional>
#include <stdexcept>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cadora::test {

// Runs the operation in a process of its own. Whether it aborted, as for a programming error.
inline bool aborts(const std::function<void()>& operation) {
    const pid_t process = fork();
    if (process == 0) {
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        std::signal(SIGABRT, SIG_DFL); // the test framework's handler would report it as a failure
        operation();
        _exit(EXIT_SUCCESS);
    }
    int status = 0;
    if (process < 0 || waitpid(process, &status, 0) != process) {
        throw std::runtime_error("no process of its own");
    }
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

} // namespace cadora::test
