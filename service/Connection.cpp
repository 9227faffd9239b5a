#include "service/Connection.h"

#include "service/HttpMessages.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace cadora::service {

namespace {

constexpr std::size_t aheadSize = 64UL * 1024;
constexpr std::size_t flushThreshold = 256UL * 1024;
// A system without the flag is left to the program, which ignores the signal.
#ifdef MSG_NOSIGNAL
constexpr int sendFlags = MSG_NOSIGNAL;
#else
constexpr int sendFlags = 0;
#endif

} // namespace

Connection::Connection(int socket, SSL_CTX* tls, Stalls& stalls)
    : socket_(socket), stalls_(stalls), ahead_(aheadSize) {
    if (tls != nullptr) {
        ssl_.reset(SSL_new(tls));
    }
}

Connection::~Connection() = default;

Connection::Handshake Connection::accept() {
    if (!ssl_) {
        return Handshake::done;
    }
    SSL_set_fd(ssl_.get(), socket_);
    usable_ = SSL_accept(ssl_.get()) == 1;
    return usable_ ? Handshake::done : Handshake::failed;
}

Connection::Next Connection::awaitRequest(std::chrono::milliseconds limit) {
    if (!usable_) {
        return Next::nothing;
    }
    if (aheadBegin_ < aheadEnd_ || (ssl_ && SSL_has_pending(ssl_.get()) == 1)) {
        return Next::request;
    }
    pollfd watched{socket_, POLLIN, 0};
    return ::poll(&watched, 1, static_cast<int>(limit.count())) > 0 ? Next::request : Next::nothing;
}

Connection::HeadEnd Connection::readHead() {
    constexpr std::string_view end = "\r\n\r\n";
    fault_ = {};
    head_.clear();
    bodyLength_ = 0;
    bodyReceived_ = 0;
    expectation_ = Expectation::none;
    gathered_.clear();
    sent_ = 0;
    headLength_.reset();
    while (head_.size() <= longestHead) {
        if (aheadBegin_ == aheadEnd_ && !readAhead()) {
            return HeadEnd::broken;
        }
        const std::size_t searched = head_.size() < end.size() ? 0 : head_.size() - end.size();
        head_.append(ahead_.data() + aheadBegin_, aheadEnd_ - aheadBegin_);
        aheadBegin_ = aheadEnd_;
        if (const std::size_t place = head_.find(end, searched); place != std::string::npos) {
            // What follows the head was read with it, and is the body's.
            aheadBegin_ -= head_.size() - (place + end.size());
            head_.resize(place + end.size());
            return HeadEnd::complete;
        }
    }
    return HeadEnd::tooLong;
}

void Connection::expectBody(std::optional<std::uint64_t> length, Expectation expectation) {
    bodyLength_ = length;
    expectation_ = expectation;
    releasesSeen_ = stalls_.releases();
}

WaitEnd Connection::pause(std::chrono::milliseconds limit) {
    return stalls_.wait(socket_, limit, releasesSeen_);
}

void Connection::setFault(const Fault& fault) {
    fault_ = fault;
    if (fault_.requestCut && fault_.requestCut->bytes == 0) {
        interrupt(std::exchange(fault_.requestCut, std::nullopt)->interruption);
    }
}

ssize_t Connection::receive(std::span<char> space) {
    if (!usable_) {
        return -1;
    }
    ssize_t count = 0;
    if (ssl_) {
        count = SSL_read(ssl_.get(), space.data(),
                         static_cast<int>(std::min<std::size_t>(space.size(), INT_MAX)));
    } else {
        do {
            count = ::recv(socket_, space.data(), space.size(), 0);
        } while (count < 0 && errno == EINTR);
    }
    if (count <= 0) {
        usable_ = usable_ && count == 0;
    }
    return count;
}

bool Connection::readAhead() {
    const ssize_t count = receive(ahead_);
    aheadBegin_ = 0;
    aheadEnd_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return count > 0;
}

std::size_t Connection::takeAhead(std::span<char> space) {
    const std::size_t count = std::min(space.size(), aheadEnd_ - aheadBegin_);
    std::memcpy(space.data(), ahead_.data() + aheadBegin_, count);
    aheadBegin_ += count;
    return count;
}

std::size_t Connection::readBody(std::span<char> space) {
    const std::uint64_t length = bodyLength_.value_or(0);
    if (expectation_ == Expectation::continueFirst && bodyLength_) {
        expectation_ = Expectation::none;
        // A peer that sends without waiting needs no telling.
        if (aheadBegin_ == aheadEnd_ && !sendAll("HTTP/1.1 100 Continue\r\n\r\n")) {
            return 0;
        }
    }
    std::size_t filled = 0;
    while (usable_ && filled < space.size() && bodyReceived_ < length) {
        std::uint64_t wanted = std::min<std::uint64_t>(space.size() - filled, length - bodyReceived_);
        if (fault_.requestCut) {
            wanted = std::min(wanted, fault_.requestCut->bytes - bodyReceived_);
        }
        if (fault_.pace) {
            wanted = std::min(wanted, fault_.pace->bytes - bodyReceived_ % fault_.pace->bytes);
        }
        const std::span<char> rest = space.subspan(filled, static_cast<std::size_t>(wanted));
        const ssize_t count = aheadBegin_ < aheadEnd_ ? static_cast<ssize_t>(takeAhead(rest)) : receive(rest);
        if (count <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
        bodyReceived_ += static_cast<std::uint64_t>(count);
        if (fault_.requestCut && bodyReceived_ == fault_.requestCut->bytes) {
            interrupt(std::exchange(fault_.requestCut, std::nullopt)->interruption);
        }
        keepPace(bodyReceived_);
    }
    return filled;
}

BodyEnd Connection::bodyEnd() const {
    return bodyReceived_ == bodyLength_ ? BodyEnd::complete : BodyEnd::broken;
}

BodyEnd Connection::readBody(std::string& body, std::size_t limit) {
    const std::uint64_t length = bodyLength_.value_or(0);
    if (length > limit) {
        return BodyEnd::tooLong;
    }
    body.resize(static_cast<std::size_t>(length));
    body.resize(readBody(std::span<char>(body)));
    return bodyEnd();
}

void Connection::discardBody() {
    std::vector<char> space(aheadSize);
    while (readBody(std::span<char>(space)) > 0) {
    }
}

bool Connection::write(std::string_view bytes) {
    if (!takesAnswers()) {
        return false;
    }
    gathered_.append(bytes);
    return gathered_.size() < flushThreshold || flush();
}

bool Connection::flush() {
    const std::string bytes = std::exchange(gathered_, {});
    if (!headLength_) {
        // The head is far shorter than what is gathered before the first flush.
        const std::size_t end = bytes.find("\r\n\r\n");
        headLength_ = end == std::string::npos ? bytes.size() : end + 4;
    }
    return usable_ && (bytes.empty() || sendFaultily(bytes)) && usable_;
}

bool Connection::sendFaultily(std::string_view bytes) {
    for (;;) {
        std::uint64_t allowed = bytes.size();
        if (fault_.answerCut) {
            const std::uint64_t head =
                fault_.answerCountedFrom == CountedFrom::body ? headLength_.value_or(0) : 0;
            allowed = std::min(allowed, fault_.answerCut->bytes + head - sent_);
            if (fault_.answerCut->bytes + head == sent_) {
                interrupt(std::exchange(fault_.answerCut, std::nullopt)->interruption);
                continue;
            }
        }
        if (!usable_ || bytes.empty()) {
            return usable_;
        }
        if (fault_.pace) {
            allowed = std::min(allowed, fault_.pace->bytes - sent_ % fault_.pace->bytes);
        }
        const auto count = static_cast<std::size_t>(allowed);
        if (!sendAll(bytes.substr(0, count))) {
            return false;
        }
        sent_ += allowed;
        bytes.remove_prefix(count);
        keepPace(sent_);
    }
}

void Connection::keepPace(std::uint64_t transferred) {
    if (fault_.pace && transferred % fault_.pace->bytes == 0) {
        const WaitEnd end = pause(fault_.pace->pause);
        if (end == WaitEnd::peerGone || end == WaitEnd::stopping) {
            drop(Interruption::close);
        }
    }
}

bool Connection::sendAll(std::string_view bytes) {
    while (usable_ && !bytes.empty()) {
        ssize_t count = 0;
        if (ssl_) {
            count = SSL_write(ssl_.get(), bytes.data(),
                              static_cast<int>(std::min<std::size_t>(bytes.size(), INT_MAX)));
        } else {
            count = ::send(socket_, bytes.data(), bytes.size(), sendFlags);
            if (count < 0 && errno == EINTR) {
                continue;
            }
        }
        if (count <= 0) {
            usable_ = false;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return usable_;
}

void Connection::interrupt(Interruption interruption) {
    if (interruption == Interruption::stall && pause(fault_.stallLimit) == WaitEnd::released) {
        return;
    }
    drop(interruption);
}

void Connection::drop(Interruption interruption) {
    gathered_.clear();
    usable_ = false;
    resetOnClose_ = interruption == Interruption::reset;
}

void Connection::close() {
    if (resetOnClose_) {
        const linger atOnce{1, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        return;
    }
    if (!usable_) {
        return;
    }
    // Closing with unread bytes makes the system reset the connection, and the peer may then lose an
    // answer that it has not read yet.
    constexpr std::chrono::seconds patience(2);
    constexpr std::size_t mostForgotten = 64UL * 1024 * 1024;
    if (ssl_) {
        SSL_shutdown(ssl_.get());
    }
    ::shutdown(socket_, SHUT_WR);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::size_t forgotten = 0;
    while (forgotten < mostForgotten) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd watched{socket_, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&watched, 1, static_cast<int>(left.count())) <= 0) {
            return;
        }
        const ssize_t count = ::recv(socket_, ahead_.data(), ahead_.size(), 0);
        if (count <= 0) {
            return;
        }
        forgotten += static_cast<std::size_t>(count);
    }
}

} // namespace cadora::service
