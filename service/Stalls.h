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
    /// The number of releases so far.
    std::uint64_t releases() const;

    /// Waits on behalf of the connection with this socket until there are more releases than `seen`, until
    /// stop(), the limit, or until its peer has closed it. Stores in `seen` the releases that it knows of,
    /// so that one which came just before the wait is neither missed nor used twice.
    WaitEnd wait(int socket, std::chrono::milliseconds limit, std::uint64_t& seen);

    void release();
    /// Ends all waits, now and from now on.
    void stop();

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t releases_ = 0;
    bool stopping_ = false;
};

} // namespace cadora::service
