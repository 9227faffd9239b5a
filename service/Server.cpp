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

Response answer(int status, const nlohmann::json& body) {
    Response response;
    response.status = status;
    response.setBody(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), json);
    return response;
}

Response refusal(int status, const std::string& text) {
    return answer(status, {{"error", text}});
}

Response page(std::string text) {
    Response response;
    response.setBody(std::move(text), html);
    return response;
}

/// The answer to a method that the path does not take, absent for one that it takes.
std::optional<Response> wrongMethod(const Request& request, std::initializer_list<std::string_view> methods) {
    if (std::find(methods.begin(), methods.end(), request.method) != methods.end()) {
        return std::nullopt;
    }
    std::string list;
    for (const std::string_view method : methods) {
        list.append(list.empty() ? "" : ", ").append(method);
    }
    Response response = refusal(405, "this path takes " + list);
    response.headers.emplace("Allow", list);
    return response;
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
      log_(log) {
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

    try {
        listener_.emplace(settings_.port, [this](int socket) { serveConnection(socket); });
    } catch (const std::system_error&) {
        throw StartError("can't listen on port " + std::to_string(settings_.port) + " of " + loopback);
    }
    origin_ = std::string(tls_ ? "https://" : "http://") + loopback + ":" + std::to_string(listener_->port());
}

Server::~Server() = default;

void Server::serve() {
    listener_->accept();
}

void Server::stop() {
    stopping_ = true;
    stalls_.stop();
    listener_->end();
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

void Server::serveRequests(int socket) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Connection connection(socket, tls_.get(), stalls_);
    if (connection.accept() == Connection::Handshake::failed) {
        return;
    }
    const std::int64_t number = ++connections_;
    Then then = Then::goOn;
    while (then == Then::goOn && !stopping_ &&
           connection.awaitRequest(idleConnection) == Connection::Next::request) {
        then = serveRequest(connection, number);
    }
    connection.close();
}

Server::Then Server::serveRequest(Connection& connection, std::int64_t number) {
    const Connection::HeadEnd head = connection.readHead();
    if (head == Connection::HeadEnd::broken) {
        return Then::close;
    }
    Exchange exchange(connection);
    exchange.entry.connection = number;
    const auto started = std::chrono::steady_clock::now();
    if (std::optional<Request> request = parseRequest(connection.head())) {
        exchange.request = *std::move(request);
        begin(exchange);
        send(exchange, handle(exchange));
    } else {
        exchange.request.keepsConnection = false;
        send(exchange, refusal(400, "this is no request of HTTP/1.1"));
    }
    if (exchange.kind == Exchange::Kind::service) {
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - started;
        exchange.entry.durationMs = took.count();
        exchange.entry.receivedBytes = connection.bodyReceived();
        exchange.entry.ended = true;
        log_.end(exchange.entry);
    }
    const bool goesOn = connection.flush() && exchange.request.keepsConnection && connection.takesAnswers();
    return goesOn ? Then::goOn : Then::close;
}

void Server::send(Exchange& exchange, Response response) {
    Connection& connection = exchange.connection;
    if (!exchange.request.keepsConnection) {
        response.headers.emplace("Connection", "close");
    } else {
        response.headers.emplace("Keep-Alive", "timeout=" + std::to_string(idleConnection.count()));
    }
    if (!response.has("Content-Length")) {
        response.headers.emplace("Content-Length", std::to_string(response.length()));
    }
    connection.write(headOf(response));
    if (exchange.request.method == "HEAD") {
        return;
    }
    if (!response.file) {
        connection.write(response.body);
        return;
    }
    std::ifstream file(response.file->file, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(response.file->offset));
    std::string piece;
    for (std::uint64_t left = response.file->length; left > 0 && file; left -= piece.size()) {
        piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(left, storeBuffer)));
        if (!file.read(piece.data(), static_cast<std::streamsize>(piece.size())) ||
            !connection.write(piece)) {
            connection.drop(Interruption::close);
        }
    }
}

void Server::begin(Exchange& exchange) {
    const Request& request = exchange.request;
    LoggedRequest& entry = exchange.entry;
    entry.time = utcText(std::time(nullptr));
    entry.method = request.method;
    entry.path = request.path;
    entry.httpVersion = request.version;
    const HeaderFields& headers = request.headers;
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

Response Server::handle(Exchange& exchange) {
    Response response;
    try {
        response = dispatch(exchange);
    } catch (const Refusal& refused) {
        response = refusal(refused.status, refused.what());
    } catch (const std::exception& error) {
        response = refusal(500, error.what());
    }
    if (exchange.connection.bodyEnd() != BodyEnd::complete) {
        exchange.request.keepsConnection = false;
    }
    if (exchange.connection.takesAnswers()) {
        exchange.entry.status = response.status;
    }
    return response;
}

Response Server::dispatch(Exchange& exchange) {
    if (exchange.length == Exchange::Length::unusable) {
        throw Refusal(400, "the body's length is not one decimal number");
    }
    if (!namesLoopback(exchange.request.headers)) {
        throw Refusal(403, "this server answers to its loopback address only");
    }
    if (exchange.kind == Exchange::Kind::control) {
        return control(exchange);
    }
    if (std::optional<Response> response = spoiled(exchange)) {
        return *std::move(response);
    }
    return route(exchange);
}

std::optional<Response> Server::spoiled(Exchange& exchange) {
    if (!exchange.fault) {
        return std::nullopt;
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
        return Response();
    }
    if ((fault.rawAnswer || fault.answer) && fault.bodyFirst == BodyFirst::yes) {
        connection.discardBody();
    }
    if (fault.rawAnswer) {
        connection.write(*fault.rawAnswer);
        connection.flush();
        connection.endAnswers();
        return Response();
    }
    if (fault.answer) {
        Response response;
        response.status = fault.answer->status;
        response.headers = {fault.answer->headers.begin(), fault.answer->headers.end()};
        if (!fault.answer->body.empty()) {
            response.setBody(fault.answer->body,
                             fault.answer->contentType.empty() ? json : fault.answer->contentType);
        }
        return response;
    }
    return std::nullopt;
}

Response Server::route(Exchange& exchange) {
    const Request& request = exchange.request;
    const std::string& path = request.path;
    const auto taking = [&](std::initializer_list<std::string_view> methods, auto&& makeResponse) {
        std::optional<Response> wrong = wrongMethod(request, methods);
        return wrong ? *std::move(wrong) : makeResponse();
    };
    if (path == "/api/posts/presign") {
        return taking({"POST"}, [&] { return presign(exchange); });
    }
    if (path == "/api/posts/sync") {
        return taking({"POST"}, [&] { return sync(exchange); });
    }
    if (path.starts_with(storePrefix)) {
        return taking({"PUT"}, [&] { return putObject(exchange); });
    }
    if (path == "/" || path == "/posts") {
        return taking({"GET", "HEAD"}, [&] { return showPosts(); });
    }
    if (path.starts_with(audioPrefix)) {
        return taking({"GET", "HEAD"}, [&] { return playAudio(request); });
    }
    if (path == "/auth/apple/desktop" || path == "/auth/apple/desktop/continue") {
        return taking({"GET", "HEAD"}, [&] { return signIn(request); });
    }
    throw Refusal(404, "there is nothing at this path");
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
    for (const std::string& userId : exchange.request.headers.values("x-cadora-user-id")) {
        if (userId != settings_.account.userId) {
            throw Refusal(403, "the token belongs to another user");
        }
    }
    if (mediaType(exchange.request.headers.value("content-type")) != json) {
        throw Refusal(415, "the body must be application/json");
    }
    if (!acceptsJson(exchange.request.headers)) {
        throw Refusal(406, "the answer is application/json");
    }
    return body;
}

Response Server::presign(Exchange& exchange) {
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
    return answer(200, {{"urls", urls}, {"headers", headers}, {"expires_in", settings_.expiresIn}});
}

Response Server::sync(Exchange& exchange) {
    const Post order = parseSyncOrder(apiBody(exchange));
    for (const std::string& key : order.uploadedFiles) {
        if (!objects_.size(order.uuid, key)) {
            throw Refusal(409, "\"" + key + "\" was never uploaded");
        }
    }
    const Post post = posts_.add(order);
    return answer(200, {{"success", true}, {"post_id", post.postId}, {"uuid", post.uuid}});
}

Response Server::putObject(Exchange& exchange) {
    const Request& request = exchange.request;
    const std::string_view rest = std::string_view(request.path).substr(storePrefix.size());
    const std::size_t slash = rest.find('/');
    const std::string_view uuid = rest.substr(0, slash);
    const std::string_view key = slash == std::string_view::npos ? "" : rest.substr(slash + 1);
    if (!isObjectName(uuid) || !isObjectName(key)) {
        throw Refusal(404, "there is nothing at this path");
    }
    const SignatureVerdict verdict = signer_.judge(
        request.method, request.path, [&](const std::string& name) { return request.parameter(name); },
        [&](const std::string& name) { return request.headers.values(name); }, std::time(nullptr));
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
    storeObject(exchange, uuid, key);
    return Response();
}

void Server::storeObject(Exchange& exchange, std::string_view uuid, std::string_view key) {
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
}

Response Server::playAudio(const Request& request) {
    const std::optional<std::uint64_t> id = number(std::string_view(request.path).substr(audioPrefix.size()));
    const std::optional<Post> post = id && *id <= std::numeric_limits<std::int64_t>::max()
                                         ? posts_.find(static_cast<std::int64_t>(*id))
                                         : std::nullopt;
    const std::optional<std::uint64_t> size = post ? objects_.size(post->uuid, "audio") : std::nullopt;
    if (!size) {
        throw Refusal(404, "there is no audio for this post");
    }
    Response response;
    response.headers.emplace("Accept-Ranges", "bytes");
    const std::optional<ByteRange> range = parseRange(request.headers.value("range"));
    if (!range) {
        response.file = FilePart{objects_.path(post->uuid, "audio"), 0, *size};
        response.headers.emplace("Content-Type", contentTypeOf("audio"));
        return response;
    }
    const std::uint64_t first = range->first ? *range->first : *size - std::min(*size, *range->last);
    if (first >= *size) {
        response.status = 416;
        response.headers.emplace("Content-Range", "bytes */" + std::to_string(*size));
        return response;
    }
    const std::uint64_t last = range->first && range->last ? std::min(*range->last, *size - 1) : *size - 1;
    response.status = 206;
    response.file = FilePart{objects_.path(post->uuid, "audio"), first, last - first + 1};
    response.headers.emplace("Content-Type", contentTypeOf("audio"));
    response.headers.emplace("Content-Range", "bytes " + std::to_string(first) + "-" + std::to_string(last) +
                                                  "/" + std::to_string(*size));
    return response;
}

Response Server::showPosts() const {
    std::vector<Post> posts = posts_.all();
    std::reverse(posts.begin(), posts.end());
    return page(postsPage(posts));
}

Response Server::signIn(const Request& request) const {
    if (request.path == "/auth/apple/desktop") {
        return page(signInPage());
    }
    const Account& account = settings_.account;
    const std::optional<std::string> callback =
        callbackUrl(request.parameter("outcome").value_or(""), account.token, account.userId, account.email);
    if (!callback) {
        throw Refusal(400, "the sign-in page has no such outcome");
    }
    Response response;
    response.status = 302;
    response.headers = {{"Cache-Control", "no-store"}, {"Location", *callback}};
    return response;
}

Response Server::control(Exchange& exchange) {
    const Request& request = exchange.request;
    if (request.path == "/faults") {
        std::optional<Response> wrong = wrongMethod(request, {"GET", "POST", "DELETE"});
        return wrong ? *std::move(wrong) : controlFaults(exchange);
    }
    if (std::optional<Response> wrong =
            wrongMethod(request, {request.path == "/faults/release" ? "POST" : "GET"})) {
        return *std::move(wrong);
    }
    if (request.path == "/faults/release") {
        stalls_.release();
        return answer(200, nlohmann::json::object());
    }
    if (request.path == "/log") {
        return answer(200, {{"requests", log_.list()}});
    }
    nlohmann::json posts = nlohmann::json::array();
    for (const Post& post : posts_.all()) {
        posts.insert(posts.begin(), listed(post, objects_, origin_));
    }
    return answer(200, {{"posts", posts}});
}

Response Server::controlFaults(Exchange& exchange) {
    const Request& request = exchange.request;
    if (request.method == "GET") {
        return answer(200, {{"faults", faults_.list()}});
    }
    if (request.method == "DELETE") {
        faults_.clear();
        stalls_.release();
        return answer(200, nlohmann::json::object());
    }
    // A web page can't send this type to another site without asking, and it would be refused.
    if (mediaType(request.headers.value("content-type")) != json) {
        throw Refusal(415, "faults are application/json");
    }
    std::string body;
    if (exchange.connection.readBody(body, longestControlBody) != BodyEnd::complete) {
        throw Refusal(400, "the faults did not arrive whole");
    }
    try {
        return answer(200, {{"ids", faults_.add(nlohmann::json::parse(body))}});
    } catch (const nlohmann::json::parse_error& error) {
        throw Refusal(400, error.what());
    } catch (const std::invalid_argument& error) {
        throw Refusal(422, error.what());
    }
}

} // namespace cadora::service
