#include "service/Stalls.h"

#include <algorithm>

#include <poll.h>

namespace cadora::service {

namespace {

// A system without the flag reports a closed peer as a hang-up.
#ifdef POLLRDHUP
constexpr short peerClosed = POLLRDHUP;
#else
constexpr short peerClosed = POLLHUP;
#endif

bool peerHasClosed(int socket) {
    pollfd watched{socket, peerClosed, 0};
    return ::poll(&watched, 1, 0) > 0;
}

} // namespace

std::uint64_t Stalls::releases() const {
    const std::lock_guard lock(mutex_);
    return releases_;
}

WaitEnd Stalls::wait(int socket, std::chrono::milliseconds limit, std::uint64_t& seen) {
    constexpr std::chrono::milliseconds betweenLooksAtThePeer(20);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock lock(mutex_);
    for (;;) {
        if (stopping_) {
            return WaitEnd::stopping;
        }
        if (releases_ != seen) {
            seen = releases_;
            return WaitEnd::released;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            return WaitEnd::limitReached;
        }
        if (peerHasClosed(socket)) {
            return WaitEnd::peerGone;
        }
        changed_.wait_until(lock, std::min(deadline, now + betweenLooksAtThePeer));
    }
}

void Stalls::release() {
    const std::lock_guard lock(mutex_);
    ++releases_;
    changed_.notify_all();
}

void Stalls::stop() {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
}

} // namespace cadora::service
