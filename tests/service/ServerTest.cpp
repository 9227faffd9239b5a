#include "service/RawConnection.h"
#include "service/ServiceCalls.h"
#include "service/ServiceProcess.h"

#include "fakes/TemporaryDirectory.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <doctest/doctest.h>
#include <nlohmann/json.hpp>

using namespace cadora::test;
using nlohmann::json;

namespace {

constexpr const char* presignPath = "/api/posts/presign";
constexpr const char* syncPath = "/api/posts/sync";
const json presignBody = {{"uuid", "abcd1234"}, {"files", {"audio"}}};

HttpHeaders without(const std::string& name) {
    HttpHeaders headers = apiHeaders();
    headers.erase(name);
    return headers;
}

HttpHeaders with(const std::string& name, const std::string& value) {
    HttpHeaders headers = without(name);
    headers.emplace(name, value);
    return headers;
}

int presignStatus(const ServiceProcess& service, const HttpHeaders& headers,
                  const std::string& type = "application/json") {
    const HttpResult result = clientOf(service).post(presignPath, headers, presignBody.dump(), type);
    REQUIRE(result);
    return result->status;
}

int putStatus(const ServiceProcess& service, const std::string& target, const HttpHeaders& headers,
              const std::string& type = "audio/mp4") {
    const HttpResult result = clientOf(service).put(target, headers, "music", type);
    REQUIRE(result);
    return result->status;
}

/// The status in the first line of an answer.
std::string statusOf(const std::string& answer) {
    return answer.substr(0, std::string("HTTP/1.1 200").size());
}

std::size_t storedObjects(const ServiceProcess& service) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(service.data() / "objects")) {
        count += entry.is_regular_file() ? 1 : 0;
    }
    return count;
}

/// A figure of the stand-in's memory in KiB.
long memory(const ServiceProcess& service, const std::string& name) {
    std::ifstream status("/proc/" + std::to_string(service.pid()) + "/status");
    std::string word;
    while (status >> word && word != name) {
    }
    long figure = 0;
    status >> figure;
    REQUIRE_FALSE(status.fail());
    return figure;
}

ServiceProcess::Options withArguments(std::vector<std::string> arguments) {
    ServiceProcess::Options options;
    options.arguments = std::move(arguments);
    return options;
}

} // namespace

TEST_CASE("a file goes from presign over put to a post that is listed and played") {
    const ServiceProcess service;
    const std::string audio = "not quite music";
    const PresignedUpload upload = presign(service, "abcd1234");
    CHECK(upload.path() == "/store/abcd1234/audio");
    CHECK(upload.contentType == "audio/mp4");
    CHECK(put(service, upload, audio).status == 200);

    const HttpAnswer answer =
        sync(service, "abcd1234", {{"body", "A song"}, {"duration", 61.5}, {"visibility", "subscribers"}});
    CHECK(answer.status == 200);
    CHECK(json::parse(answer.body) == json{{"success", true}, {"post_id", 1}, {"uuid", "abcd1234"}});

    REQUIRE(service.posts().size() == 1);
    const json post = service.posts().front();
    CHECK(post.at("body") == "A song");
    CHECK(post.at("visibility") == "subscribers");
    CHECK(post.at("duration") == 61.5);
    CHECK(post.at("audio_bytes") == audio.size());
    CHECK_FALSE(post.contains("recorded_at"));
    CHECK(post.at("audio_url") == service.origin() + "/audio/1");
    const HttpAnswer played = get(service, "/audio/1");
    CHECK(played.status == 200);
    CHECK(played.body == audio);
    CHECK(played.header("content-type") == "audio/mp4");
}

TEST_CASE("presign gives a URL, headers as lists of values, and the URL's lifetime") {
    const ServiceProcess service(withArguments({"--expires-in", "77"}));
    const json answer = json::parse(
        postJson(service, presignPath, {{"uuid", "abcd1234"}, {"files", {"audio", "waveform"}}}).body);
    CHECK(answer.at("expires_in") == 77);
    CHECK(answer.at("urls").size() == 2);
    CHECK(answer.at("headers").at("waveform").at("Content-Type") == json::array({"image/webp"}));
    const json headers = answer.at("headers").at("audio");
    CHECK(headers.at("Content-Type") == json::array({"audio/mp4"}));
    CHECK(headers.at("X-Cadora-Upload").size() == 1);
    CHECK(headers.at("Host") == json::array({service.origin().substr(std::string("http://").size())}));
}

TEST_CASE("an API call needs the account's token") {
    const ServiceProcess service;
    CHECK(presignStatus(service, without("Authorization")) == 401);
    CHECK(presignStatus(service, with("Authorization", "Bearer other")) == 401);
    CHECK(presignStatus(service, with("Authorization", "local-token")) == 401);
    CHECK(presignStatus(service, with("Authorization", "Bearer local-token ")) == 200);
    CHECK(presignStatus(service, with("Authorization", "Bearer  local-token")) == 401);
    CHECK(presignStatus(service, with("Authorization", "bearer local-token")) == 401);
    CHECK(presignStatus(service, with("Authorization", "Bearer %6Cocal-token")) == 401);
    CHECK(clientOf(service).post(syncPath, without("Authorization"), "{}", "application/json")->status ==
          401);
}

TEST_CASE("the account is the one given at the start") {
    const ServiceProcess service(withArguments({"--token", "t0ken+/=", "--user-id", "42"}));
    CHECK(presignStatus(service, apiHeaders()) == 401);
    CHECK(presignStatus(service, {{"Authorization", "Bearer t0ken+/="}, {"X-Cadora-User-Id", "42"}}) == 200);
}

TEST_CASE("a user id is checked when there is one") {
    const ServiceProcess service;
    CHECK(presignStatus(service, without("X-Cadora-User-Id")) == 200);
    CHECK(presignStatus(service, with("X-Cadora-User-Id", "1002")) == 403);
}

TEST_CASE("an API call is JSON in both directions") {
    const ServiceProcess service;
    CHECK(presignStatus(service, apiHeaders(), "text/plain") == 415);
    CHECK(presignStatus(service, apiHeaders(), "application/json; charset=utf-8") == 200);
    CHECK(presignStatus(service, with("Accept", "text/html")) == 406);
    CHECK(presignStatus(service, with("Accept", "text/html, */*;q=0.1")) == 200);
    CHECK(presignStatus(service, without("Accept")) == 200);
}

TEST_CASE("an API call of the wrong form is refused with the reason") {
    const ServiceProcess service;
    CHECK(postJson(service, presignPath, json::array()).status == 422);
    CHECK(clientOf(service).post(presignPath, apiHeaders(), "{", "application/json")->status == 400);
    const HttpAnswer unknown = postJson(service, syncPath, {{"uuid", "abcd1234"}, {"title", "x"}});
    CHECK(unknown.status == 422);
    CHECK(json::parse(unknown.body).at("error") == "unknown key \"title\"");
    const std::string long_(1024UL * 1024 + 1, ' ');
    CHECK(clientOf(service).post(presignPath, apiHeaders(), long_, "application/json")->status == 413);
}

TEST_CASE("other paths are not found and other methods not allowed") {
    const ServiceProcess service;
    CHECK(get(service, "/api/posts/other").status == 404);
    CHECK(get(service, "/store/").status == 405);
    const HttpAnswer wrongMethod = get(service, presignPath);
    CHECK(wrongMethod.status == 405);
    CHECK(wrongMethod.header("allow") == "POST");
    CHECK(clientOf(service).put(syncPath, apiHeaders(), "{}", "application/json")->status == 405);
    CHECK(clientOf(service).post("/posts", apiHeaders(), "{}", "application/json")->status == 405);
    CHECK(clientOf(service).remove("/store/abcd1234/audio")->status == 405);
    CHECK(clientOf(service).put("/store/abcd1234", apiHeaders(), "x", "audio/mp4")->status == 404);
    CHECK(clientOf(service).put("/store/abcd1234/..", apiHeaders(), "x", "audio/mp4")->status == 404);
    CHECK(clientOf(service).put("/store/%2E%2E/audio", apiHeaders(), "x", "audio/mp4")->status == 404);
}

TEST_CASE("an object is put only with the URL and the headers that were signed") {
    const ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    const HttpHeaders headers = {{"X-Cadora-Upload", upload.uploadHeader}};
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string target = upload.target;
        const std::size_t place = target.find(from);
        REQUIRE(place != std::string::npos);
        return target.replace(place, from.size(), to);
    };
    SUBCASE("a header's value is changed") {
        CHECK(putStatus(service, upload.target, headers, "audio/mpeg") == 403);
        CHECK(putStatus(service, upload.target, {{"X-Cadora-Upload", "0000000000000000"}}) == 403);
    }
    SUBCASE("a header is missing") {
        CHECK(putStatus(service, upload.target, {}) == 403);
    }
    SUBCASE("a header is repeated") {
        CHECK(putStatus(service, upload.target,
                        {{"X-Cadora-Upload", upload.uploadHeader}, {"X-Cadora-Upload", "x"}}) == 403);
    }
    SUBCASE("the URL is unsigned") {
        CHECK(putStatus(service, upload.path(), headers) == 403);
    }
    SUBCASE("the URL is for another object") {
        CHECK(putStatus(service, changed("abcd1234", "abcd1235"), headers) == 403);
        CHECK(putStatus(service, changed("/audio", "/waveform"), headers) == 403);
    }
    SUBCASE("the expiry is changed") {
        CHECK(putStatus(service, changed("expires=", "expires=9"), headers) == 403);
    }
    SUBCASE("a signed header is dropped from the list") {
        CHECK(putStatus(service, changed(".x-cadora-upload", ""), headers) == 403);
    }
    SUBCASE("the signature is changed") {
        CHECK(putStatus(service, changed("signature=", "signature=0"), headers) == 403);
        CHECK(putStatus(service, upload.target + "&signature=0", headers) == 403);
    }
    SUBCASE("the signature is of another server") {
        const ServiceProcess other;
        CHECK(putStatus(other, upload.target, headers) == 403);
    }
    CHECK(storedObjects(service) == 0);
    CHECK(putStatus(service, upload.target, headers) == 200);
    CHECK(storedObjects(service) == 1);
}

TEST_CASE("a URL past its lifetime is refused") {
    const ServiceProcess service(withArguments({"--expires-in", "0"}));
    const HttpAnswer answer = put(service, presign(service, "abcd1234"), "music");
    CHECK(answer.status == 403);
    CHECK(json::parse(answer.body).at("error") == "the URL has expired");
    CHECK(storedObjects(service) == 0);
}

TEST_CASE("an object may be put again and is then replaced") {
    const ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    CHECK(put(service, upload, "first, longer").status == 200);
    CHECK(put(service, upload, "second").status == 200);
    CHECK(readFile(service.data() / "objects/abcd1234/audio") == "second");
    CHECK(put(service, upload, "").status == 200);
    CHECK(readFile(service.data() / "objects/abcd1234/audio").empty());
}

TEST_CASE("a chunked object is refused") {
    const ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    RawConnection connection(service.port());
    connection.send(putHead(upload, "Transfer-Encoding: chunked\r\n") + "5\r\nmusic\r\n0\r\n\r\n");
    CHECK(statusOf(connection.readToEnd().bytes) == "HTTP/1.1 411");
    CHECK(service.requests("PUT", "/store/").at(0).chunked);
    CHECK(storedObjects(service) == 0);
}

TEST_CASE("an object without a length is refused") {
    const ServiceProcess service;
    RawConnection connection(service.port());
    connection.send(putHead(presign(service, "abcd1234"), "Connection: close\r\n"));
    CHECK(statusOf(connection.readToEnd().bytes) == "HTTP/1.1 411");
}

TEST_CASE("a length that is not one number is refused") {
    const ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    for (const std::string lengths :
         {"Content-Length: five\r\n", "Content-Length: -5\r\n", "Content-Length: 5, 5\r\n",
          "Content-Length:\r\n", "Content-Length: 99999999999999999999\r\n",
          "Content-Length: 5\r\nContent-Length: 6\r\n",
          "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n"}) {
        CAPTURE(lengths);
        RawConnection connection(service.port());
        connection.send(putHead(upload, lengths) + "music");
        CHECK(statusOf(connection.readToEnd().bytes) == "HTTP/1.1 400");
    }
    CHECK(storedObjects(service) == 0);
}

TEST_CASE("an object shorter than its length is refused and leaves nothing") {
    const ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    RawConnection connection(service.port());
    connection.send(putHead(upload, "Content-Length: 10\r\n") + "music");
    SUBCASE("the sender still listens") {
        connection.endSending();
        CHECK(statusOf(connection.readToEnd().bytes) == "HTTP/1.1 400");
        CHECK(service.awaitEnded().back().status == 400);
    }
    SUBCASE("the sender is gone") {
        service.awaitRequests(1, "PUT", "/store/");
        connection.close();
        CHECK(service.awaitEnded().back().receivedBytes == 5);
    }
    CHECK(storedObjects(service) == 0);
    CHECK(std::filesystem::is_empty(service.data() / "incoming"));
    CHECK(sync(service, "abcd1234").status == 409);
}

TEST_CASE("bytes beyond an object's length are no part of it") {
    const ServiceProcess service;
    RawConnection connection(service.port());
    connection.send(putHead(presign(service, "abcd1234"), "Content-Length: 5\r\n") +
                    "music and more\r\n\r\n");
    CHECK(statusOf(connection.readToEnd().bytes) == "HTTP/1.1 200");
    CHECK(readFile(service.data() / "objects/abcd1234/audio") == "music");
}

TEST_CASE("a large object is streamed to disk") {
    const ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    const long before = memory(service, "VmRSS:");
    const std::string piece(1024UL * 1024, 'x');
    constexpr std::size_t pieces = 256;
    RawConnection connection(service.port());
    connection.send(putHead(
        upload, "Connection: close\r\nContent-Length: " + std::to_string(piece.size() * pieces) + "\r\n"));
    for (std::size_t count = 0; count < pieces; ++count) {
        connection.send(piece);
    }
    CHECK(statusOf(connection.readToEnd().bytes) == "HTTP/1.1 200");
    CHECK(std::filesystem::file_size(service.data() / "objects/abcd1234/audio") == piece.size() * pieces);

    CHECK(memory(service, "VmHWM:") - before < 32768);
}

TEST_CASE("sync refuses a key that was never uploaded for that uuid") {
    const ServiceProcess service;
    CHECK(sync(service, "abcd1234").status == 409);
    CHECK(put(service, presign(service, "abcd1234"), "music").status == 200);
    CHECK(sync(service, "abcd1235").status == 409);
    CHECK(sync(service, "abcd1234", {{"uploaded_files", {"audio", "waveform"}}}).status == 409);
    CHECK(service.posts().empty());
    CHECK(sync(service, "abcd1234").status == 200);
}

TEST_CASE("sync of a known uuid gives the same post again") {
    const ServiceProcess service;
    put(service, presign(service, "aaaaaaaa"), "a");
    put(service, presign(service, "bbbbbbbb"), "b");
    const json first = json::parse(sync(service, "aaaaaaaa", {{"body", "First"}}).body);
    const json other = json::parse(sync(service, "bbbbbbbb").body);
    const json again = json::parse(sync(service, "aaaaaaaa", {{"body", "Again"}}).body);
    CHECK(first.at("post_id") != other.at("post_id"));
    CHECK(again == first);
    const std::vector<json> posts = service.posts();
    REQUIRE(posts.size() == 2);
    CHECK(posts.at(0).at("uuid") == "bbbbbbbb");
    CHECK(posts.at(1).at("body") == "First");
}

TEST_CASE("audio is served in ranges") {
    const ServiceProcess service;
    put(service, presign(service, "abcd1234"), "0123456789");
    sync(service, "abcd1234");
    const auto part = [&](const std::string& range) {
        return get(service, "/audio/1", {{"Range", "bytes=" + range}});
    };
    CHECK(part("2-4").status == 206);
    CHECK(part("2-4").body == "234");
    CHECK(part("2-4").header("content-range") == "bytes 2-4/10");
    CHECK(part("7-").body == "789");
    CHECK(part("-3").body == "789");
    CHECK(part("10-").status == 416);
    CHECK(part("10-").header("content-range") == "bytes */10");
    CHECK(get(service, "/audio/1").header("accept-ranges") == "bytes");
    const HttpResult head = clientOf(service).head("/audio/1");
    REQUIRE(head);
    CHECK(head->status == 200);
    CHECK(head->header("content-length") == "10");
}

TEST_CASE("there is audio only for posts") {
    const ServiceProcess service;
    put(service, presign(service, "abcd1234"), "music");
    for (const char* path : {"/audio/1", "/audio/", "/audio/x", "/audio/-1", "/audio/99999999999999999999",
                             "/audio/18446744073709551615"}) {
        CHECK(get(service, path).status == 404);
    }
}

TEST_CASE("the page lists the posts, newest first") {
    const ServiceProcess service;
    for (const std::string uuid : {"aaaaaaaa", "bbbbbbbb"}) {
        put(service, presign(service, uuid), "music");
        sync(service, uuid, {{"body", "Song " + uuid}});
    }
    for (const char* path : {"/", "/posts"}) {
        const HttpAnswer page = get(service, path);
        CHECK(page.status == 200);
        CHECK(page.header("content-type") == "text/html; charset=utf-8");
        const std::size_t newer = page.body.find("Song bbbbbbbb");
        const std::size_t older = page.body.find("Song aaaaaaaa");
        REQUIRE(older != std::string::npos);
        CHECK(newer < older);
        CHECK(page.body.find("src=\"/audio/2\"") != std::string::npos);
    }
}

TEST_CASE("each button of the sign-in page redirects to its callback") {
    const ServiceProcess service(withArguments({"--token", "a b&c", "--email", "m+x@example.com"}));
    CHECK(get(service, "/auth/apple/desktop").status == 200);
    // The client library decodes what it reads from a header.
    const auto location = [&](const std::string& outcome) {
        RawConnection connection(service.port());
        connection.send("GET /auth/apple/desktop/continue?outcome=" + outcome +
                        " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
        const std::string answer = connection.readToEnd().bytes;
        CHECK(statusOf(answer) == "HTTP/1.1 302");
        const std::string start = "\r\nLocation: ";
        const std::size_t begin = answer.find(start);
        REQUIRE(begin != std::string::npos);
        const std::size_t value = begin + start.size();
        return answer.substr(value, answer.find('\r', value) - value);
    };
    CHECK(location("account") == "cadora://callback?token=a%20b%26c&user_id=1001&email=m%2Bx%40example.com");
    CHECK(location("account-without-email") == "cadora://callback?token=a%20b%26c&user_id=1001");
    CHECK(location("no-account") == "cadora://callback?error=no_account");
    CHECK(location("denied") == "cadora://callback?error=access_denied");
    CHECK(get(service, "/auth/apple/desktop/continue?outcome=x").status == 400);
    CHECK(get(service, "/auth/apple/desktop/continue").status == 400);
}

TEST_CASE("the log tells what came and how it was answered") {
    const ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    put(service, upload, "music");
    presignStatus(service, with("Authorization", "Bearer other"));
    get(service, "/nothing?a=b");

    const std::vector<ServiceRequest> all = service.requests();
    REQUIRE(all.size() == 4);
    CHECK(std::all_of(all.begin(), all.end(), [](const ServiceRequest& request) { return request.ended; }));
    CHECK(all[0].method == "POST");
    CHECK(all[0].path == presignPath);
    CHECK(all[0].httpVersion == "HTTP/1.1");
    CHECK(all[0].status == 200);
    CHECK(all[0].authorizationPresent);
    CHECK(all[0].authorizationValid);
    CHECK(all[0].contentType == "application/json");
    CHECK(all[0].accept == "application/json");
    CHECK(all[0].receivedBytes == presignBody.dump().size());
    CHECK(all[0].contentLength == presignBody.dump().size());
    CHECK(all[0].hasHeader("x-cadora-user-id"));
    CHECK_FALSE(all[0].hasHeader("remote_addr"));
    CHECK(all[1].path == "/store/abcd1234/audio");
    CHECK_FALSE(all[1].chunked);
    CHECK_FALSE(all[1].authorizationPresent);
    CHECK(all[1].hasHeader("x-cadora-upload"));
    CHECK(all[2].status == 401);
    CHECK(all[2].authorizationPresent);
    CHECK_FALSE(all[2].authorizationValid);
    CHECK(all[3].path == "/nothing");
    CHECK(all[3].status == 404);
    CHECK(service.requests("PUT", "/store/").size() == 1);

    const std::string text = service.logText();
    CHECK(std::count(text.begin(), text.end(), '\n') == 4);
}

TEST_CASE("the log holds no credential and no signature") {
    const ServiceProcess service(withArguments({"--token", "s3cret-token", "--email", "hidden@example.com"}));
    HttpHeaders headers = {{"Authorization", "Bearer s3cret-token"}, {"X-Cadora-User-Id", "1001"}};
    const HttpResult answer =
        clientOf(service).post(presignPath, headers, presignBody.dump(), "application/json");
    REQUIRE(answer);
    const json body = json::parse(answer->body);
    const auto url = body.at("urls").at("audio").get<std::string>();
    const auto nonce = body.at("headers").at("audio").at("X-Cadora-Upload").at(0).get<std::string>();
    CHECK(putStatus(service, url.substr(service.origin().size()), {{"X-Cadora-Upload", nonce}}) == 200);
    presignStatus(service, with("Authorization", "Bearer wr0ng-token"));
    get(service, "/auth/apple/desktop/continue?outcome=account");
    get(service, "/posts?token=s3cret-token");

    const std::string signature = url.substr(url.find("signature=") + std::string("signature=").size());
    REQUIRE(signature.size() == 64);
    const std::string written = service.logText();
    const std::string listed = get(service, "/log").body;
    CHECK(written.find("/store/abcd1234/audio") != std::string::npos);
    for (const std::string& text : {written, listed}) {
        for (const std::string& secret :
             {std::string("s3cret-token"), std::string("wr0ng-token"), signature, nonce,
              std::string("signature"), std::string("hidden"), std::string("Bearer")}) {
            CAPTURE(secret);
            CHECK(text.find(secret) == std::string::npos);
        }
    }
}

TEST_CASE("only those who name the loopback address are answered") {
    const ServiceProcess service;
    const auto status = [&](const std::string& host) {
        RawConnection connection(service.port());
        connection.send("GET /api/posts HTTP/1.1\r\nHost: " + host + "\r\nConnection: close\r\n\r\n");
        return statusOf(connection.readToEnd().bytes);
    };
    CHECK(status("127.0.0.1") == "HTTP/1.1 200");
    CHECK(status("localhost:" + std::to_string(service.port())) == "HTTP/1.1 200");
    CHECK(status("feed.example.com") == "HTTP/1.1 403");
    CHECK(status("127.0.0.1.example.com") == "HTTP/1.1 403");
}

TEST_CASE("a web page can't script faults in passing") {
    const ServiceProcess service;
    CHECK(clientOf(service).post("/faults", {}, R"({"status":500})", "text/plain")->status == 415);
    CHECK(get(service, "/").status == 200);
}

TEST_CASE("requests share a connection that their client keeps") {
    const ServiceProcess service;
    HttpClient client = clientOf(service);
    for (int count = 0; count < 3; ++count) {
        REQUIRE(client.post(presignPath, apiHeaders(), presignBody.dump(), "application/json"));
    }
    const std::vector<ServiceRequest> all = service.requests();
    REQUIRE(all.size() == 3);
    CHECK(all[0].connection == all[1].connection);
    CHECK(all[0].connection == all[2].connection);
}

TEST_CASE("over HTTPS everything is as over HTTP") {
    ServiceProcess::Options options;
    options.transport = ServiceTransport::https;
    const ServiceProcess service(options);
    const PresignedUpload upload = presign(service, "abcd1234");
    const std::string audio(3UL * 1024 * 1024 + 7, 'm');
    CHECK(put(service, upload, audio).status == 200);
    CHECK(sync(service, "abcd1234").status == 200);
    CHECK(get(service, "/audio/1").body == audio);

    HttpClient distrustful(service.origin());
    const HttpResult refused = distrustful.get("/");
    CHECK_FALSE(refused);
    CHECK(refused.failure == HttpResult::Failure::untrusted);
}
