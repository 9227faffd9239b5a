#include "hosts/linux/system/Process.h"

#include <csignal>

#include <fcntl.h>
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

} // namespace

void prepareProcess() {
    fillStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace cadora
