#include "linux/network/ScriptedServer.h"

#include "base/ASCII.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace cadora::test {

namespace {

void check(bool success, const char* what) {
    if (!success) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

template <class T> std::unique_ptr<T, void (*)(T*)> owned(T* object, void (*release)(T*)) {
    if (object == nullptr) {
        throw std::runtime_error("OpenSSL refused");
    }
    return {object, release};
}

} // namespace

std::string ScriptedServer::Connection::readHead() {
    const std::string end = "\r\n\r\n";
    std::array<char, 4096> chunk{};
    while (buffer_.find(end) == std::string::npos) {
        buffer_.append(chunk.data(), receive(chunk.data(), chunk.size()));
    }
    const auto length = buffer_.find(end) + end.size();
    std::string head = buffer_.substr(0, length);
    buffer_.erase(0, length);
    const std::lock_guard guard(server_->mutex_);
    server_->heads_.push_back(head);
    return head;
}

std::string ScriptedServer::Connection::readBody(std::size_t count) {
    std::array<char, 65536> chunk{};
    while (buffer_.size() < count) {
        buffer_.append(chunk.data(), receive(chunk.data(), std::min(chunk.size(), count - buffer_.size())));
    }
    std::string body = buffer_.substr(0, count);
    buffer_.erase(0, count);
    return body;
}

void ScriptedServer::Connection::discardBody(std::size_t count) {
    const std::size_t buffered = std::min(count, buffer_.size());
    buffer_.erase(0, buffered);
    std::array<char, 262144> chunk;
    for (std::size_t rest = count - buffered; rest != 0;) {
        rest -= receive(chunk.data(), std::min(chunk.size(), rest));
    }
}

std::size_t ScriptedServer::Connection::drain() {
    std::size_t count = std::exchange(buffer_, {}).size();
    std::array<char, 65536> chunk{};
    try {
        for (;;) {
            count += receive(chunk.data(), chunk.size());
        }
    } catch (const Closed&) {
        return count;
    }
}

std::size_t ScriptedServer::Connection::receive(char* bytes, std::size_t count) {
    const auto got =
        tls_ ? SSL_read(tls_.get(), bytes, static_cast<int>(count)) : ::recv(socket_.get(), bytes, count, 0);
    if (got <= 0) {
        throw Closed();
    }
    return static_cast<std::size_t>(got);
}

void ScriptedServer::Connection::send(const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const auto count =
            tls_ ? SSL_write(tls_.get(), bytes.data() + sent, static_cast<int>(bytes.size() - sent))
                 : ::send(socket_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            throw Closed();
        }
        sent += static_cast<std::size_t>(count);
    }
}

void ScriptedServer::Connection::startTLS() {
    tls_ = std::shared_ptr<SSL>(SSL_new(server_->tls_.get()), SSL_free);
    SSL_set_fd(tls_.get(), socket_.get());
    if (SSL_accept(tls_.get()) != 1) {
        throw Closed();
    }
}

void ScriptedServer::Connection::reset() {
    const linger now{1, 0};
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    throw Closed();
}

ScriptedServer::ScriptedServer(Script script, const Options& options)
    : script_(std::move(script)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      startsInClear_(options.startsInClear) {
    check(static_cast<bool>(listener_), "socket");
    if (options.receiveBufferSize != 0) {
        check(::setsockopt(listener_.get(), SOL_SOCKET, SO_RCVBUF, &options.receiveBufferSize,
                           sizeof options.receiveBufferSize) == 0,
              "SO_RCVBUF");
    }
    if (!options.certificateFor.empty()) {
        useCertificateFor(options.certificateFor);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    check(::bind(listener_.get(), generic, length) == 0, "bind");
    check(::listen(listener_.get(), 64) == 0, "listen");
    check(::getsockname(listener_.get(), generic, &length) == 0, "getsockname");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { acceptConnections(); });
}

ScriptedServer::~ScriptedServer() {
    {
        const std::lock_guard guard(mutex_);
        ending_ = true;
        ::shutdown(listener_.get(), SHUT_RDWR);
        for (const Connection& connection : connections_) {
            ::shutdown(connection.socket_.get(), SHUT_RDWR);
        }
    }
    acceptor_.join();
    for (std::thread& player : players_) {
        player.join();
    }
}

void ScriptedServer::acceptConnections() {
    // OpenSSL writes to a peer that may be gone.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    for (;;) {
        FileDescriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const std::lock_guard guard(mutex_);
        if (!socket || ending_) {
            return;
        }
        Connection& connection = connections_.emplace_back();
        connection.server_ = this;
        connection.socket_ = std::move(socket);
        connection.number_ = connections_.size() - 1;
        players_.emplace_back([this, &connection] { play(connection); });
    }
}

void ScriptedServer::play(Connection& connection) {
    const bool orderly = follow(connection);
    if (orderly && connection.tls_) {
        SSL_shutdown(connection.tls_.get());
    }
    const std::lock_guard guard(mutex_);
    connection.socket_.reset();
    ++ended_;
}

// Whether the script came to its own end.
bool ScriptedServer::follow(Connection& connection) const {
    try {
        if (tls_ && !startsInClear_) {
            connection.startTLS();
        }
        script_(connection);
        return true;
    } catch (const Connection::Closed&) {
        return false;
    }
}

void ScriptedServer::useCertificateFor(const std::string& name) {
    const auto key = owned(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const auto certificate = owned(X509_new(), X509_free);
    constexpr long version3 = 2;
    constexpr long hour = 3600;
    X509_set_version(certificate.get(), version3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -hour);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), hour);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("Test server"), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), subject);
    in_addr numeric{};
    const bool address = ::inet_pton(AF_INET, name.c_str(), &numeric) == 1;
    const auto names = owned(X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name,
                                                 ((address ? "IP:" : "DNS:") + name).c_str()),
                             X509_EXTENSION_free);
    X509_add_ext(certificate.get(), names.get(), -1);
    X509_sign(certificate.get(), key.get(), EVP_sha256());

    tls_ = std::shared_ptr<SSL_CTX>(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (SSL_CTX_use_certificate(tls_.get(), certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(tls_.get(), key.get()) != 1) {
        throw std::runtime_error("OpenSSL refused the certificate");
    }
    const auto memory = owned(BIO_new(BIO_s_mem()), BIO_free_all);
    PEM_write_bio_X509(memory.get(), certificate.get());
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    certificate_.assign(text, static_cast<std::size_t>(length));
}

std::vector<std::string> ScriptedServer::heads() const {
    const std::lock_guard guard(mutex_);
    return heads_;
}

std::size_t ScriptedServer::connectionCount() const {
    const std::lock_guard guard(mutex_);
    return connections_.size();
}

std::size_t ScriptedServer::endedCount() const {
    const std::lock_guard guard(mutex_);
    return ended_;
}

std::string headerField(const std::string& head, const std::string& name) {
    const std::string wanted = "\r\n" + lowercased(name) + ":";
    const auto found = lowercased(head).find(wanted);
    if (found == std::string::npos) {
        return "";
    }
    const auto begin = head.find_first_not_of(' ', found + wanted.size());
    return head.substr(begin, head.find("\r\n", begin) - begin);
}

std::string httpAnswer(int status, const std::string& body, const std::string& moreFields) {
    return "HTTP/1.1 " + std::to_string(status) +
           " Scripted\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + moreFields + "\r\n" +
           body;
}

} // namespace cadora::test
