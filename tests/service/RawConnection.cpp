#include "service/RawConnection.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace cadora::test {

RawConnection::RawConnection(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (socket_ < 0) {
        throw std::system_error(errno, std::generic_category(), "socket");
    }
    const timeval limit{20, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int problem = errno;
        close();
        throw std::system_error(problem, std::generic_category(), "connect");
    }
}

RawConnection::~RawConnection() {
    close();
}

void RawConnection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) {
            throw std::system_error(errno, std::generic_category(), "send");
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void RawConnection::endSending() {
    ::shutdown(socket_, SHUT_WR);
}

void RawConnection::close() {
    if (socket_ >= 0) {
        ::close(socket_);
        socket_ = -1;
    }
}

std::string RawConnection::readUntil(std::string_view end) {
    std::string bytes;
    while (bytes.find(end) == std::string::npos) {
        char character = 0;
        if (::recv(socket_, &character, 1, 0) != 1) {
            throw std::runtime_error("the connection ended after: " + bytes);
        }
        bytes += character;
    }
    return bytes;
}

RawConnection::Rest RawConnection::readToEnd() {
    Rest rest;
    std::array<char, 4096> space{};
    for (;;) {
        const ssize_t count = ::recv(socket_, space.data(), space.size(), 0);
        if (count == 0) {
            return rest;
        }
        if (count < 0 && errno == ECONNRESET) {
            rest.ending = Ending::reset;
            return rest;
        }
        if (count < 0) {
            throw std::system_error(errno, std::generic_category(), "recv");
        }
        rest.bytes.append(space.data(), static_cast<std::size_t>(count));
    }
}

} // namespace cadora::test
