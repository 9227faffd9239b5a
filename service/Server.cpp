#include "service/Server.h"

#include "service/ApiRequests.h"
#include "service/Pages.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <thread>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cadora::service {

namespace {

constexpr const char* loopback = "127.0.0.1";
constexpr std::size_t longestApiBody = 1024UL * 1024;
constexpr std::size_t longestControlBody = 64UL * 1024 * 1024;
constexpr std::size_t storeBuffer = 1024UL * 1024;
constexpr std::chrono::seconds idleConnection(60);
constexpr std::string_view storePrefix = "/store/";
constexpr std::string_view audioPrefix = "/audio/";
constexpr const char* json = "application/json";
constexpr const char* html = "text/html; charset=utf-8";

std::filesystem::path prepared(const std::filesystem::path& data) {
    std::filesystem::create_directories(data);
    return data;
}

/// The secret stays with the data, so that URLs handed out before a restart remain good.
std::string signingSecret(const std::filesystem::path& file) {
    if (std::ifstream kept(file); kept) {
        std::string secret;
        if (kept >> secret && secret.size() == 64) {
            return secret;
        }
        throw StartError("the signing key in " + file.string() + " is unreadable");
    }
    const std::string secret = randomHex(32);
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const ssize_t written = descriptor < 0 ? -1 : ::write(descriptor, secret.data(), secret.size());
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    if (written != static_cast<ssize_t>(secret.size())) {
        throw StartError("can't keep the signing key in " + file.string());
    }
    return secret;
}

std::optional<std::uint64_t> number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [stop, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || problem != std::errc() || stop != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

void answer(httplib::Response& response, int status, const nlohmann::json& body) {
    response.status = status;
    response.set_content(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), json);
}

void refuse(httplib::Response& response, int status, const std::string& text) {
    answer(response, status, {{"error", text}});
}

enum class MethodIs { allowed, refused };

MethodIs requireMethod(const httplib::Request& request, httplib::Response& response,
                       std::initializer_list<std::string_view> methods) {
    if (std::find(methods.begin(), methods.end(), request.method) != methods.end()) {
        return MethodIs::allowed;
    }
    std::string list;
    for (const std::string_view method : methods) {
        list.append(list.empty() ? "" : ", ").append(method);
    }
    response.set_header("Allow", list);
    refuse(response, 405, "this path takes " + list);
    return MethodIs::refused;
}

std::string mediaType(const std::string& field) {
    return lowered(std::string(trimmed(std::string_view(field).substr(0, field.find(';')))));
}

bool acceptsJson(const HeaderFields& headers) {
    for (const std::string& field : headers.values("accept")) {
        std::size_t start = 0;
        while (start <= field.size()) {
            const std::size_t end = std::min(field.find(',', start), field.size());
            const std::string type = mediaType(field.substr(start, end - start));
            if (type == json || type == "application/*" || type == "*/*") {
                return true;
            }
            start = end + 1;
        }
    }
    return !headers.has("accept");
}

/// A page of another site may have its name resolve to the loopback address; its requests then name that
/// site here.
bool namesLoopback(const HeaderFields& headers) {
    const std::string host = headers.value("host");
    const std::string name = host.substr(0, host.find(':'));
    return name == loopback || name == "localhost";
}

bool equalInConstantTime(const std::string& given, const std::string& wanted) {
    return given.size() == wanted.size() && CRYPTO_memcmp(given.data(), wanted.data(), wanted.size()) == 0;
}

nlohmann::json listed(const Post& post, const ObjectStore& objects, const std::string& origin) {
    nlohmann::json record = toJson(post);
    record["audio_url"] = origin + std::string(audioPrefix) + std::to_string(post.postId);
    if (const std::optional<std::uint64_t> bytes = objects.size(post.uuid, "audio")) {
        record["audio_bytes"] = *bytes;
    }
    return record;
}

} // namespace

Server::Server(Settings settings, std::ostream& log)
    : settings_(std::move(settings)), objects_(prepared(settings_.data)),
      posts_(settings_.data / "posts.json"), signer_(signingSecret(settings_.data / "signing-key")),
      log_(log), listener_(
                     idleConnection, [this](int socket) { serveConnection(socket); },
                     [this](const httplib::Request& request, httplib::Response& response) {
                         handle(*current_, request, response);
                     }) {
    if (!settings_.certificate.empty()) {
        tls_.reset(SSL_CTX_new(TLS_server_method()));
        SSL_CTX_set_min_proto_version(tls_.get(), TLS1_2_VERSION);
        SSL_CTX_set_read_ahead(tls_.get(), 1);
        SSL_CTX_set_default_read_buffer_len(tls_.get(), 256UL * 1024);
        if (SSL_CTX_use_certificate_chain_file(tls_.get(), settings_.certificate.c_str()) != 1 ||
            SSL_CTX_use_PrivateKey_file(tls_.get(), settings_.key.c_str(), SSL_FILETYPE_PEM) != 1) {
            throw StartError("can't use the certificate " + settings_.certificate.string() +
                             " with the key " + settings_.key.string() + ": " +
                             ERR_reason_error_string(ERR_peek_last_error()));
        }
    }

    const int port = listener_.bind(settings_.port);
    if (port < 0) {
        throw StartError("can't listen on port " + std::to_string(settings_.port) + " of " + loopback);
    }
    origin_ = std::string(tls_ ? "https://" : "http://") + loopback + ":" + std::to_string(port);
}

Server::~Server() = default;

void Server::serve() {
    listener_.accept();
}

void Server::stop() {
    stopping_ = true;
    stalls_.stop();
    listener_.end();
    const std::lock_guard lock(socketsMutex_);
    for (const int socket : sockets_) {
        ::shutdown(socket, SHUT_RDWR);
    }
}

void Server::serveConnection(int socket) {
    {
        const std::lock_guard lock(socketsMutex_);
        sockets_.insert(socket);
    }
    if (!stopping_) {
        serveRequests(socket);
    }
    const std::lock_guard lock(socketsMutex_);
    sockets_.erase(socket);
}

thread_local Server::Exchange* Server::current_ = nullptr;

void Server::serveRequests(int socket) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Connection connection(socket, tls_.get(), stalls_);
    if (connection.accept() == Connection::Handshake::failed) {
        return;
    }
    const std::int64_t number = ++connections_;
    bool closing = false;
    while (!closing && !stopping_ && connection.awaitRequest(idleConnection) == Connection::Next::request) {
        serveRequest(connection, number, closing);
    }
    connection.close();
}

void Server::serveRequest(Connection& connection, std::int64_t number, bool& closing) {
    Exchange exchange(connection);
    exchange.entry.connection = number;
    const auto started = std::chrono::steady_clock::now();
    connection.beginRequest();
    current_ = &exchange;
    bool closedByPeer = false;
    const bool served = listener_.process(connection, closedByPeer,
                                          [&](httplib::Request& request) { begin(exchange, request); });
    current_ = nullptr;
    const bool bodyTaken = connection.bodyEnd() == BodyEnd::complete;
    if (exchange.kind == Exchange::Kind::service) {
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - started;
        exchange.entry.durationMs = took.count();
        exchange.entry.receivedBytes = connection.bodyReceived();
        exchange.entry.ended = true;
        log_.end(exchange.entry);
    }
    closing = !connection.flush() || !served || closedByPeer || !bodyTaken ||
              exchange.kind == Exchange::Kind::unread;
}

void Server::begin(Exchange& exchange, httplib::Request& request) {
    LoggedRequest& entry = exchange.entry;
    entry.time = utcText(std::time(nullptr));
    entry.method = request.method;
    entry.path = request.path;
    entry.httpVersion = request.version;
    exchange.headers = HeaderFields(exchange.connection.head());
    const HeaderFields& headers = exchange.headers;
    entry.headerNames = headers.names();
    entry.contentType = headers.value("content-type");
    entry.accept = headers.value("accept");
    entry.expect = headers.value("expect");
    entry.chunked = headers.has("transfer-encoding");
    entry.authorizationPresent = headers.has("authorization");
    const std::vector<std::string> credentials = headers.values("authorization");
    entry.authorizationValid = credentials.size() == 1 &&
                               equalInConstantTime(credentials.front(), "Bearer " + settings_.account.token);

    const std::vector<std::string> lengths = headers.values("content-length");
    if (lengths.size() == 1 && !entry.chunked) {
        entry.contentLength = number(lengths.front());
    }
    if (entry.contentLength) {
        exchange.length = Exchange::Length::known;
    } else if (!lengths.empty()) {
        exchange.length = Exchange::Length::unusable;
    }
    // Without a length a POST or PUT may be followed by anything, so the connection ends with it.
    const bool bodiless = request.method != "POST" && request.method != "PUT" && !entry.chunked &&
                          exchange.length == Exchange::Length::absent;
    const bool asksFirst = lowered(entry.expect) == "100-continue";
    // The library would answer before it is known whether the body is wanted.
    request.headers.erase("Expect");
    exchange.connection.expectBody(bodiless ? std::optional<std::uint64_t>(0) : entry.contentLength,
                                   asksFirst ? Connection::Expectation::continueFirst
                                             : Connection::Expectation::none);

    const bool listing = request.path == "/api/posts" && request.method == "GET";
    if (listing || request.path == "/log" || request.path == "/faults" || request.path == "/faults/release") {
        exchange.kind = Exchange::Kind::control;
        return;
    }
    exchange.kind = Exchange::Kind::service;
    exchange.fault = faults_.next(request.method, request.path);
    if (exchange.fault) {
        entry.fault = exchange.fault->id;
    }
    entry.id = log_.begin(entry);
}

void Server::handle(Exchange& exchange, const httplib::Request& request, httplib::Response& response) {
    try {
        dispatch(exchange, request, response);
    } catch (const Refusal& refusal) {
        refuse(response, refusal.status, refusal.what());
    } catch (const std::exception& error) {
        refuse(response, 500, error.what());
    }
    if (exchange.connection.bodyEnd() != BodyEnd::complete) {
        response.set_header("Connection", "close");
    }
    if (exchange.connection.is_writable()) {
        exchange.entry.status =
            response.status == -1 ? (request.ranges.empty() ? 200 : 206) : response.status;
    }
}

void Server::dispatch(Exchange& exchange, const httplib::Request& request, httplib::Response& response) {
    if (exchange.length == Exchange::Length::unusable) {
        throw Refusal(400, "the body's length is not one decimal number");
    }
    if (!namesLoopback(exchange.headers)) {
        throw Refusal(403, "this server answers to its loopback address only");
    }
    if (exchange.kind == Exchange::Kind::control) {
        control(exchange, request, response);
    } else if (applyFault(exchange, response) == Spoiled::no) {
        route(exchange, request, response);
    }
}

Server::Spoiled Server::applyFault(Exchange& exchange, httplib::Response& response) {
    if (!exchange.fault) {
        return Spoiled::no;
    }
    const Fault& fault = *exchange.fault;
    Connection& connection = exchange.connection;
    if (fault.delay.count() > 0) {
        const WaitEnd end = connection.pause(fault.delay);
        if (end == WaitEnd::peerGone || end == WaitEnd::stopping) {
            connection.drop(Interruption::close);
        }
    }
    if (fault.stallBeforeHandling && connection.pause(fault.stallLimit) != WaitEnd::released) {
        connection.drop(Interruption::close);
    }
    connection.setFault(fault);
    if (!connection.usable()) {
        return Spoiled::wholly;
    }
    if ((fault.rawAnswer || fault.answer) && fault.bodyFirst == BodyFirst::yes) {
        connection.discardBody();
    }
    if (fault.rawAnswer) {
        connection.write(fault.rawAnswer->data(), fault.rawAnswer->size());
        connection.flush();
        connection.endAnswers();
        return Spoiled::wholly;
    }
    if (fault.answer) {
        response.status = fault.answer->status;
        for (const auto& [name, value] : fault.answer->headers) {
            response.set_header(name, value);
        }
        if (!fault.answer->body.empty()) {
            response.set_content(fault.answer->body,
                                 fault.answer->contentType.empty() ? json : fault.answer->contentType);
        }
        return Spoiled::wholly;
    }
    return Spoiled::no;
}

void Server::route(Exchange& exchange, const httplib::Request& request, httplib::Response& response) {
    const std::string& path = request.path;
    if (path == "/api/posts/presign") {
        if (requireMethod(request, response, {"POST"}) == MethodIs::allowed) {
            presign(exchange, response);
        }
    } else if (path == "/api/posts/sync") {
        if (requireMethod(request, response, {"POST"}) == MethodIs::allowed) {
            sync(exchange, response);
        }
    } else if (path.starts_with(storePrefix)) {
        if (requireMethod(request, response, {"PUT"}) == MethodIs::allowed) {
            putObject(exchange, request, response);
        }
    } else if (path == "/" || path == "/posts") {
        if (requireMethod(request, response, {"GET", "HEAD"}) == MethodIs::allowed) {
            showPosts(response);
        }
    } else if (path.starts_with(audioPrefix)) {
        if (requireMethod(request, response, {"GET", "HEAD"}) == MethodIs::allowed) {
            playAudio(request, response);
        }
    } else if (path == "/auth/apple/desktop" || path == "/auth/apple/desktop/continue") {
        if (requireMethod(request, response, {"GET", "HEAD"}) == MethodIs::allowed) {
            signIn(request, response);
        }
    } else {
        throw Refusal(404, "there is nothing at this path");
    }
}

std::string Server::apiBody(Exchange& exchange) {
    if (exchange.length == Exchange::Length::absent) {
        throw Refusal(411, "the body needs a Content-Length");
    }
    std::string body;
    const BodyEnd end = exchange.connection.readBody(body, longestApiBody);
    if (end == BodyEnd::tooLong) {
        throw Refusal(413, "the body is longer than " + std::to_string(longestApiBody) + " bytes");
    }
    if (end == BodyEnd::broken) {
        throw Refusal(400, "the body is shorter than its Content-Length");
    }
    if (!exchange.entry.authorizationValid) {
        throw Refusal(401, "the token is missing or unknown");
    }
    for (const std::string& userId : exchange.headers.values("x-cadora-user-id")) {
        if (userId != settings_.account.userId) {
            throw Refusal(403, "the token belongs to another user");
        }
    }
    if (mediaType(exchange.headers.value("content-type")) != json) {
        throw Refusal(415, "the body must be application/json");
    }
    if (!acceptsJson(exchange.headers)) {
        throw Refusal(406, "the answer is application/json");
    }
    return body;
}

void Server::presign(Exchange& exchange, httplib::Response& response) {
    const PresignOrder order = parsePresignOrder(apiBody(exchange));
    const std::int64_t expires = std::time(nullptr) + settings_.expiresIn;
    nlohmann::json urls = nlohmann::json::object();
    nlohmann::json headers = nlohmann::json::object();
    for (const std::string& key : order.files) {
        const std::string path = std::string(storePrefix) + order.uuid + "/" + key;
        const SignedHeaders signedHeaders = {{"content-type", contentTypeOf(key)},
                                             {"x-cadora-upload", randomHex(8)}};
        urls[key] = origin_ + path + "?" + signer_.query("PUT", path, expires, signedHeaders);
        headers[key] = {{"Content-Type", {signedHeaders.at("content-type")}},
                        {"X-Cadora-Upload", {signedHeaders.at("x-cadora-upload")}},
                        {"Host", {origin_.substr(origin_.find("//") + 2)}}};
    }
    answer(response, 200, {{"urls", urls}, {"headers", headers}, {"expires_in", settings_.expiresIn}});
}

void Server::sync(Exchange& exchange, httplib::Response& response) {
    const Post order = parseSyncOrder(apiBody(exchange));
    for (const std::string& key : order.uploadedFiles) {
        if (!objects_.size(order.uuid, key)) {
            throw Refusal(409, "\"" + key + "\" was never uploaded");
        }
    }
    const Post post = posts_.add(order);
    answer(response, 200, {{"success", true}, {"post_id", post.postId}, {"uuid", post.uuid}});
}

void Server::putObject(Exchange& exchange, const httplib::Request& request, httplib::Response& response) {
    const std::string_view rest = std::string_view(request.path).substr(storePrefix.size());
    const std::size_t slash = rest.find('/');
    const std::string_view uuid = rest.substr(0, slash);
    const std::string_view key = slash == std::string_view::npos ? "" : rest.substr(slash + 1);
    if (!isObjectName(uuid) || !isObjectName(key)) {
        throw Refusal(404, "there is nothing at this path");
    }
    const SignatureVerdict verdict = signer_.judge(
        request.method, request.path,
        [&](const std::string& name) {
            return request.get_param_value_count(name) == 1 ? std::optional(request.get_param_value(name))
                                                            : std::nullopt;
        },
        [&](const std::string& name) { return exchange.headers.values(name); }, std::time(nullptr));
    switch (verdict) {
    case SignatureVerdict::accepted:
        break;
    case SignatureVerdict::missing:
        throw Refusal(403, "the URL is not signed");
    case SignatureVerdict::expired:
        throw Refusal(403, "the URL has expired");
    case SignatureVerdict::headerMissing:
        throw Refusal(403, "a signed header is missing or repeated");
    case SignatureVerdict::mismatch:
        throw Refusal(403, "the signature does not match");
    }
    if (exchange.length == Exchange::Length::absent) {
        throw Refusal(411, "the object needs a Content-Length");
    }
    storeObject(exchange, uuid, key, response);
}

void Server::storeObject(Exchange& exchange, std::string_view uuid, std::string_view key,
                         httplib::Response& response) {
    ObjectStore::Incoming incoming = objects_.receive(uuid, key);
    std::vector<char> space(storeBuffer);
    for (;;) {
        const std::size_t count = exchange.connection.readBody(std::span<char>(space));
        if (count == 0) {
            break;
        }
        incoming.write(std::span<const char>(space.data(), count));
    }
    if (exchange.connection.bodyEnd() != BodyEnd::complete) {
        throw Refusal(400, "the object is shorter than its Content-Length");
    }
    incoming.commit();
    response.status = 200;
}

void Server::playAudio(const httplib::Request& request, httplib::Response& response) {
    const std::optional<std::uint64_t> id = number(std::string_view(request.path).substr(audioPrefix.size()));
    const std::optional<Post> post = id && *id <= std::numeric_limits<std::int64_t>::max()
                                         ? posts_.find(static_cast<std::int64_t>(*id))
                                         : std::nullopt;
    const auto file = std::make_shared<std::ifstream>();
    if (post) {
        file->open(objects_.path(post->uuid, "audio"), std::ios::binary | std::ios::ate);
    }
    if (!post || !*file) {
        throw Refusal(404, "there is no audio for this post");
    }
    const auto size = static_cast<std::size_t>(file->tellg());
    for (const auto& [first, last] : request.ranges) {
        const bool suffix = first < 0;
        if ((suffix && last <= 0) || (!suffix && static_cast<std::size_t>(first) >= size)) {
            response.set_header("Content-Range", "bytes */" + std::to_string(size));
            response.status = 416;
            return;
        }
    }
    response.set_header("Accept-Ranges", "bytes");
    response.set_content_provider(size, contentTypeOf("audio"),
                                  [file](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                      std::vector<char> space(std::min(length, storeBuffer));
                                      file->seekg(static_cast<std::streamoff>(offset));
                                      return file->read(space.data(),
                                                        static_cast<std::streamsize>(space.size())) &&
                                             sink.write(space.data(), space.size());
                                  });
}

void Server::showPosts(httplib::Response& response) const {
    std::vector<Post> posts = posts_.all();
    std::reverse(posts.begin(), posts.end());
    response.status = 200;
    response.set_content(postsPage(posts), html);
}

void Server::signIn(const httplib::Request& request, httplib::Response& response) const {
    if (request.path == "/auth/apple/desktop") {
        response.status = 200;
        response.set_content(signInPage(), html);
        return;
    }
    const Account& account = settings_.account;
    const std::optional<std::string> callback =
        callbackUrl(request.get_param_value("outcome"), account.token, account.userId, account.email);
    if (!callback) {
        throw Refusal(400, "the sign-in page has no such outcome");
    }
    response.set_header("Cache-Control", "no-store");
    response.set_redirect(*callback, 302);
}

void Server::control(Exchange& exchange, const httplib::Request& request, httplib::Response& response) {
    if (request.path == "/log" || request.path == "/api/posts") {
        if (requireMethod(request, response, {"GET"}) == MethodIs::refused) {
            return;
        }
        if (request.path == "/log") {
            answer(response, 200, {{"requests", log_.list()}});
            return;
        }
        nlohmann::json posts = nlohmann::json::array();
        for (const Post& post : posts_.all()) {
            posts.insert(posts.begin(), listed(post, objects_, origin_));
        }
        answer(response, 200, {{"posts", posts}});
        return;
    }
    if (request.path == "/faults/release") {
        if (requireMethod(request, response, {"POST"}) == MethodIs::allowed) {
            stalls_.release();
            answer(response, 200, nlohmann::json::object());
        }
        return;
    }
    if (requireMethod(request, response, {"GET", "POST", "DELETE"}) == MethodIs::refused) {
        return;
    }
    if (request.method == "GET") {
        answer(response, 200, {{"faults", faults_.list()}});
    } else if (request.method == "DELETE") {
        faults_.clear();
        stalls_.release();
        answer(response, 200, nlohmann::json::object());
    } else {
        // A web page can't send this type to another site without asking, and it would be refused.
        if (mediaType(exchange.headers.value("content-type")) != json) {
            throw Refusal(415, "faults are application/json");
        }
        std::string body;
        if (exchange.connection.readBody(body, longestControlBody) != BodyEnd::complete) {
            throw Refusal(400, "the faults did not arrive whole");
        }
        try {
            answer(response, 200, {{"ids", faults_.add(nlohmann::json::parse(body))}});
        } catch (const nlohmann::json::parse_error& error) {
            throw Refusal(400, error.what());
        } catch (const std::invalid_argument& error) {
            throw Refusal(422, error.what());
        }
    }
}

} // namespace cadora::service
