#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace cadora::service {

/// Why a wait came to its end.
enum class WaitEnd { released, limitReached, peerGone, stopping };

/// Where connections wait when a fault tells them to. Any thread may use it.
class Stalls {
public:
    /// Waits on behalf of the connection with this socket until release(), stop(), the limit, or until
    /// its peer has closed it.
    WaitEnd wait(int socket, std::chrono::milliseconds limit);

    /// Lets everything that waits now go on.
    void release();
    /// Ends all waits, now and from now on.
    void stop();

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t releases_ = 0;
    bool stopping_ = false;
};

} // namespace cadora::service
