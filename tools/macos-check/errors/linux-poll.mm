// error: use of undeclared identifier 'POLLRDHUP'
#include <poll.h>

short peerGone() {
    return POLLRDHUP;
}
