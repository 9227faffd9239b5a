#pragma once

#include "service/FaultScript.h"
#include "service/Stalls.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <openssl/ssl.h>

namespace cadora::service {

/// How a request's body arrived.
enum class BodyEnd { complete, tooLong, broken };

/// One accepted connection, plain or TLS, beneath the parser. It reads ahead for the head and in large
/// pieces for the body, gathers an answer until flush(), and is where faults cut a transfer: only
/// here do all bytes pass. Used by the one thread that serves the connection.
class Connection final {
public:
    /// Does not take the socket over. `tls` is null for plain HTTP.
    Connection(int socket, SSL_CTX* tls, Stalls& stalls);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    enum class Handshake { done, failed };
    Handshake accept();

    enum class Next { request, nothing };
    /// Waits for the first byte of a request.
    Next awaitRequest(std::chrono::milliseconds limit);

    enum class HeadEnd { complete, tooLong, broken };
    /// Starts a request and reads its head.
    HeadEnd readHead();
    /// The head that was read, with its empty line.
    const std::string& head() const { return head_; }

    /// Says how many bytes the request's body has, absent when that can't be told: then nothing of it can
    /// be read. The peer is told to send it on the first read if it asked to be told.
    enum class Expectation { none, continueFirst };
    void expectBody(std::optional<std::uint64_t> length, Expectation expectation);
    void setFault(const Fault& fault);
    /// Waits as Stalls does; a release counts when it came after expectBody().
    WaitEnd pause(std::chrono::milliseconds limit);

    /// Reads up to `space.size()` bytes of the body, fewer only at its end. Gives 0 at the end and when
    /// the transfer broke; bodyEnd() tells which.
    std::size_t readBody(std::span<char> space);
    BodyEnd bodyEnd() const;
    /// The whole body, unless it is longer than `limit` bytes or of unknown length: then nothing of it is
    /// read.
    BodyEnd readBody(std::string& body, std::size_t limit);
    /// Reads the rest of the body and forgets it.
    void discardBody();
    std::uint64_t bodyReceived() const { return bodyReceived_; }

    /// Gathers what is sent later. False when the connection can't be used any more.
    bool write(std::string_view bytes);
    /// Sends what was gathered. False when the connection can't be used any more.
    bool flush();
    /// Sends nothing more, and nothing of what was gathered.
    void drop(Interruption interruption);
    bool usable() const { return usable_; }
    /// Whether what is written still becomes part of the answer.
    bool takesAnswers() const { return usable_ && !answersEnded_; }
    /// Ignores what is written from now on; the connection then ends as close() does it.
    void endAnswers() { answersEnded_ = true; }

    /// Ends the connection so that an answer just sent still arrives, although not all was read that the
    /// peer sends.
    void close();

private:
    ssize_t receive(std::span<char> space);
    bool readAhead();
    std::size_t takeAhead(std::span<char> space);
    bool sendAll(std::string_view bytes);
    bool sendFaultily(std::string_view bytes);
    void interrupt(Interruption interruption);
    void keepPace(std::uint64_t transferred);

    struct SslDeleter {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    int socket_;
    std::unique_ptr<SSL, SslDeleter> ssl_;
    Stalls& stalls_;
    bool usable_ = true;
    bool resetOnClose_ = false;
    bool answersEnded_ = false;

    std::vector<char> ahead_;
    std::size_t aheadBegin_ = 0;
    std::size_t aheadEnd_ = 0;

    Fault fault_;
    std::uint64_t releasesSeen_ = 0;
    std::string head_;
    std::optional<std::uint64_t> bodyLength_ = 0;
    std::uint64_t bodyReceived_ = 0;
    Expectation expectation_ = Expectation::none;

    std::string gathered_;
    std::uint64_t sent_ = 0;
    std::optional<std::uint64_t> headLength_;
};

} // namespace cadora::service
