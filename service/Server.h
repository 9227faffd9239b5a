#pragma once

#include "service/Connection.h"
#include "service/FaultScript.h"
#include "service/HttpMessages.h"
#include "service/LoopbackListener.h"
#include "service/ObjectStore.h"
#include "service/PostBook.h"
#include "service/RequestLog.h"
#include "service/Stalls.h"
#include "service/UrlSigner.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include <openssl/ssl.h>

namespace cadora::service {

/// The one account that the stand-in knows.
struct Account {
    std::string token = "local-token";
    std::string userId = "1001";
    std::string email = "musician@example.com";
};

/// What a server is made of. Certificate and key are PEM files; both are empty for plain HTTP.
struct Settings {
    std::filesystem::path data;
    std::uint16_t port = 0; ///< 0 takes a free one
    Account account;
    std::int64_t expiresIn = 900; ///< lifetime of a presigned URL in seconds
    std::filesystem::path certificate;
    std::filesystem::path key;
};

/// The server can't start; the text says why, for the person who started it.
struct StartError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The stand-in of the service: its API, its object store, its sign-in page and its page of posts, on one
/// port of the loopback interface. Requests are served on threads of their own.
class Server final {
public:
    /// Takes the port, so that origin() is known. `log` receives one line for each request and must
    /// outlive the server. Throws StartError.
    Server(Settings settings, std::ostream& log);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Scheme, host and port, without a path.
    const std::string& origin() const { return origin_; }

    /// Serves until stop() is called from another thread.
    void serve();
    /// Ends serve(), with every connection. May be called before serve() has begun.
    void stop();

private:
    struct Exchange {
        explicit Exchange(Connection& itsConnection) : connection(itsConnection) {}

        Connection& connection;
        Request request;
        LoggedRequest entry;
        enum class Kind { unread, service, control } kind = Kind::unread;
        enum class Length { known, absent, unusable } length = Length::absent;
        std::optional<Fault> fault;
    };

    void serveConnection(int socket);
    void serveRequests(int socket);
    enum class Then { goOn, close };
    Then serveRequest(Connection& connection, std::int64_t number);

    void begin(Exchange& exchange);
    Response handle(Exchange& exchange);
    Response dispatch(Exchange& exchange);
    std::optional<Response> spoiled(Exchange& exchange);
    Response route(Exchange& exchange);
    void send(Exchange& exchange, Response response);

    Response presign(Exchange& exchange);
    Response sync(Exchange& exchange);
    std::string apiBody(Exchange& exchange);
    Response putObject(Exchange& exchange);
    void storeObject(Exchange& exchange, std::string_view uuid, std::string_view key);
    Response playAudio(const Request& request);
    Response showPosts() const;
    Response control(Exchange& exchange);
    Response controlFaults(Exchange& exchange);
    Response signIn(const Request& request) const;

    Settings settings_;
    std::string origin_;
    ObjectStore objects_;
    PostBook posts_;
    UrlSigner signer_;
    FaultScript faults_;
    RequestLog log_;
    Stalls stalls_;

    struct ContextDeleter {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };
    std::unique_ptr<SSL_CTX, ContextDeleter> tls_;

    std::mutex socketsMutex_;
    std::set<int> sockets_;
    std::atomic<bool> stopping_ = false;
    std::atomic<std::int64_t> connections_ = 0;
    std::optional<LoopbackListener> listener_;
};

} // namespace cadora::service
