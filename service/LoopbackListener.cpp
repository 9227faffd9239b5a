#include "service/LoopbackListener.h"

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cadora::service {

namespace {

/// So long a connection waits that can't be accepted for want of descriptors or threads.
constexpr std::chrono::milliseconds untilTheNextTry(20);

[[noreturn]] void fail(const char* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

std::uint16_t bindToLoopback(int socket, std::uint16_t port) {
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        fail("bind");
    }
    if (::listen(socket, SOMAXCONN) != 0) {
        fail("listen");
    }
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        fail("getsockname");
    }
    return ntohs(address.sin_port);
}

void closeAll(std::initializer_list<int> descriptors) {
    for (const int descriptor : descriptors) {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }
}

} // namespace

LoopbackListener::LoopbackListener(std::uint16_t port, ServeConnection serveConnection)
    : serveConnection_(std::move(serveConnection)), socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    try {
        if (socket_ < 0 || ::pipe(wake_.data()) != 0) {
            fail("socket");
        }
        port_ = bindToLoopback(socket_, port);
    } catch (...) {
        closeAll({socket_, wake_[0], wake_[1]});
        throw;
    }
}

LoopbackListener::~LoopbackListener() {
    closeAll({socket_, wake_[0], wake_[1]});
}

bool LoopbackListener::awaitConnection() const {
    std::array<pollfd, 2> watched = {{{socket_, POLLIN, 0}, {wake_[0], POLLIN, 0}}};
    while (::poll(watched.data(), watched.size(), -1) < 0 && errno == EINTR) {
    }
    return watched[1].revents == 0;
}

void LoopbackListener::accept() {
    while (awaitConnection()) {
        const int connection = ::accept(socket_, nullptr, nullptr);
        if (connection >= 0) {
            serve(connection);
        } else if (errno != EINTR && errno != ECONNABORTED) {
            std::this_thread::sleep_for(untilTheNextTry);
        }
    }
    std::unique_lock lock(mutex_);
    served_.wait(lock, [this] { return serving_ == 0; });
}

void LoopbackListener::serve(int socket) {
    {
        const std::lock_guard lock(mutex_);
        ++serving_;
    }
    const auto serveToItsEnd = [this, socket] {
        serveConnection_(socket);
        ::close(socket);
        // Told under the lock: accept() may return, and this object end, as soon as the lock is free.
        const std::lock_guard lock(mutex_);
        --serving_;
        served_.notify_all();
    };
    std::thread(serveToItsEnd).detach();
}

void LoopbackListener::end() {
    const char wake = 0;
    [[maybe_unused]] const ssize_t written = ::write(wake_[1], &wake, 1);
}

} // namespace cadora::service
