#include "service/LoopbackListener.h"

#include "service/RawConnection.h"

#include <cerrno>
#include <chrono>
#include <future>
#include <system_error>

#include <doctest/doctest.h>
#include <sys/socket.h>
#include <unistd.h>

using cadora::service::LoopbackListener;
using cadora::test::RawConnection;

extern "C" int __real_shutdown(int socket, int how); // NOLINT(bugprone-reserved-identifier)

/// What the whole test program is linked with: some systems answer so for a socket that listens, and let its
/// accept() wait on.
extern "C" int __wrap_shutdown(int socket, int how) { // NOLINT(bugprone-reserved-identifier)
    int listens = 0;
    socklen_t length = sizeof listens;
    ::getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listens, &length);
    if (listens != 0) {
        errno = ENOTCONN;
        return -1;
    }
    return __real_shutdown(socket, how);
}

namespace {

constexpr std::chrono::seconds bound(20);

void answer(int socket) {
    CHECK(::send(socket, "hello", 5, MSG_NOSIGNAL) == 5);
}

} // namespace

TEST_CASE("a listener accepts until it is told to end") {
    LoopbackListener listener(0, answer);
    std::future<void> accepting = std::async(std::launch::async, [&] { listener.accept(); });
    CHECK(RawConnection(listener.port()).readToEnd().bytes == "hello");
    CHECK(RawConnection(listener.port()).readToEnd().bytes == "hello");
    listener.end();
    REQUIRE(accepting.wait_for(bound) == std::future_status::ready);
}

TEST_CASE("a listener that is told to end first does not begin") {
    LoopbackListener listener(0, answer);
    listener.end();
    std::future<void> accepting = std::async(std::launch::async, [&] { listener.accept(); });
    CHECK(accepting.wait_for(bound) == std::future_status::ready);
}

TEST_CASE("a listener ends when the connections that it accepted have been served") {
    std::promise<void> begun;
    std::promise<void> mayEnd;
    LoopbackListener listener(0, [&](int) {
        begun.set_value();
        mayEnd.get_future().wait();
    });
    std::future<void> accepting = std::async(std::launch::async, [&] { listener.accept(); });
    const RawConnection connection(listener.port());
    REQUIRE(begun.get_future().wait_for(bound) == std::future_status::ready);
    listener.end();
    CHECK(accepting.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout);
    mayEnd.set_value();
    CHECK(accepting.wait_for(bound) == std::future_status::ready);
}

TEST_CASE("a port is one listener's") {
    const LoopbackListener listener(0, answer);
    CHECK_THROWS_AS(LoopbackListener(listener.port(), answer), std::system_error);
}
