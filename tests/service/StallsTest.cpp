#include "service/Stalls.h"

#include <array>
#include <chrono>
#include <future>
#include <stdexcept>

#include <doctest/doctest.h>
#include <sys/socket.h>
#include <unistd.h>

using cadora::service::Stalls;
using cadora::service::WaitEnd;

namespace {

constexpr std::chrono::seconds longWait(60);
constexpr std::chrono::seconds bound(20);

/// A connected pair, of which the stalled side is the first.
class SocketPair {
public:
    SocketPair() {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_.data()) != 0) {
            throw std::runtime_error("no socket pair");
        }
    }
    ~SocketPair() {
        ::close(ends_[0]);
        closePeer();
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    int stalled() const { return ends_[0]; }
    void closePeer() {
        if (ends_[1] >= 0) {
            ::close(ends_[1]);
            ends_[1] = -1;
        }
    }

private:
    std::array<int, 2> ends_{};
};

WaitEnd result(std::future<WaitEnd>& waiting) {
    REQUIRE(waiting.wait_for(bound) == std::future_status::ready);
    return waiting.get();
}

} // namespace

TEST_CASE("a wait ends at its limit") {
    Stalls stalls;
    const SocketPair pair;
    std::uint64_t seen = 0;
    const auto start = std::chrono::steady_clock::now();
    CHECK(stalls.wait(pair.stalled(), std::chrono::milliseconds(30), seen) == WaitEnd::limitReached);
    CHECK(std::chrono::steady_clock::now() - start >= std::chrono::milliseconds(30));
}

TEST_CASE("a wait ends when its peer has gone") {
    Stalls stalls;
    SocketPair pair;
    std::uint64_t seen = 0;
    std::future<WaitEnd> waiting =
        std::async(std::launch::async, [&] { return stalls.wait(pair.stalled(), longWait, seen); });
    pair.closePeer();
    CHECK(result(waiting) == WaitEnd::peerGone);
}

TEST_CASE("a release ends one wait, also one that begins after it") {
    Stalls stalls;
    const SocketPair pair;
    std::uint64_t seen = stalls.releases();
    std::future<WaitEnd> waiting =
        std::async(std::launch::async, [&] { return stalls.wait(pair.stalled(), longWait, seen); });
    stalls.release();
    CHECK(result(waiting) == WaitEnd::released);
    CHECK(stalls.wait(pair.stalled(), std::chrono::milliseconds(1), seen) == WaitEnd::limitReached);
    stalls.release();
    CHECK(stalls.wait(pair.stalled(), longWait, seen) == WaitEnd::released);
}

TEST_CASE("a stop ends what waits and what would wait") {
    Stalls stalls;
    const SocketPair pair;
    std::uint64_t seen = 0;
    std::future<WaitEnd> waiting =
        std::async(std::launch::async, [&] { return stalls.wait(pair.stalled(), longWait, seen); });
    stalls.stop();
    CHECK(result(waiting) == WaitEnd::stopping);
    CHECK(stalls.wait(pair.stalled(), longWait, seen) == WaitEnd::stopping);
}
