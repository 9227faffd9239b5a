#pragma once

#include "hosts/linux/system/FileDescriptor.h"

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct ssl_ctx_st;
struct ssl_st;

namespace cadora::test {

// A server on a loopback port of its own, whose every connection follows a script: for what a well-behaved
// HTTP server can't be brought to do. Ends with the object, whatever its scripts are doing.
class ScriptedServer {
public:
    // One end of a connection, used by its script alone. Reading and writing throw Closed once the peer or
    // the test has ended the connection; it ends the script.
    class Connection {
    public:
        struct Closed {};

        // A request's or answer's lines up to and including the empty one.
        std::string readHead();
        std::string readBody(std::size_t count);
        // Reads so many bytes and forgets them.
        void discardBody(std::size_t count);
        // Reads until the peer closes; how many bytes came.
        std::size_t drain();
        void send(const std::string& bytes);
        // Which number this connection has, beginning with 0.
        std::size_t number() const { return number_; }
        // From here on with TLS; for a server that waits for it.
        void startTLS();
        // Closes it so that the peer sees a reset, not an orderly end.
        void reset();

    private:
        friend class ScriptedServer;

        std::size_t receive(char* bytes, std::size_t count);

        ScriptedServer* server_ = nullptr;
        FileDescriptor socket_;
        std::size_t number_ = 0;
        std::shared_ptr<ssl_st> tls_;
        std::string buffer_;
    };

    using Script = std::function<void(Connection&)>;

    struct Options {
        // In bytes; 0 is the system's choice.
        int receiveBufferSize = 0;
        // Speak TLS with a certificate for this name or address, made for this server.
        std::string certificateFor;
        // The script itself says when TLS begins, as behind a proxy.
        bool startsInClear = false;
    };

    explicit ScriptedServer(Script script) : ScriptedServer(std::move(script), Options()) {}
    ScriptedServer(Script script, const Options& options);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    int port() const { return port_; }
    std::string authority() const { return "127.0.0.1:" + std::to_string(port_); }
    std::string origin() const { return (certificate_.empty() ? "http://" : "https://") + authority(); }
    // The certificate to trust, in PEM form.
    const std::string& certificate() const { return certificate_; }

    // The heads that scripts have read so far, in order.
    std::vector<std::string> heads() const;
    std::size_t connectionCount() const;
    // Scripts that have come to their end.
    std::size_t endedCount() const;

private:
    void acceptConnections();
    void play(Connection& connection);
    bool follow(Connection& connection) const;
    void useCertificateFor(const std::string& name);

    Script script_;
    FileDescriptor listener_;
    int port_ = 0;
    std::string certificate_;
    std::shared_ptr<ssl_ctx_st> tls_;
    bool startsInClear_ = false;

    mutable std::mutex mutex_;
    bool ending_ = false;
    std::list<Connection> connections_;
    std::list<std::thread> players_;
    std::vector<std::string> heads_;
    std::size_t ended_ = 0;
    std::thread acceptor_;
};

// The value of a field in a head; empty without one.
std::string headerField(const std::string& head, const std::string& name);

// A complete answer with its length.
std::string httpAnswer(int status, const std::string& body = "", const std::string& moreFields = "");

} // namespace cadora::test
