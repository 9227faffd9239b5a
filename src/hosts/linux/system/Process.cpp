#include "hosts/linux/system/Process.h"

#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace cadora {

namespace {

// A standard descriptor that is closed would go to the next file or socket, and log lines with it.
void fillStandardDescriptors() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
}

// The usual limit suits programs that wait with select(), which this one doesn't.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// The program's memory holds its user's token while a request is made. Neither another program of the user's
// nor a core dump is given it.
void keepMemoryPrivate() {
    prctl(PR_SET_DUMPABLE, 0);
}

// TLS libraries write the keys of each connection into the file that it names.
void keepKeysPrivate() {
    ::unsetenv("SSLKEYLOGFILE");
}

} // namespace

void prepareProcess() {
    keepMemoryPrivate();
    keepKeysPrivate();
    fillStandardDescriptors();
    raiseDescriptorLimit();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace cadora
