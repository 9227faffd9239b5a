#include "service/RawConnection.h"
#include "service/ServiceCalls.h"
#include "service/ServiceProcess.h"

#include "fakes/TemporaryDirectory.h"

#include <chrono>
#include <filesystem>
#include <future>
#include <string>

#include <doctest/doctest.h>
#include <nlohmann/json.hpp>

using namespace cadora::test;
using nlohmann::json;

namespace {

const std::string getPosts = "GET /posts HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";

std::string lengthLine(std::size_t bytes) {
    return "Content-Length: " + std::to_string(bytes) + "\r\n";
}

} // namespace

TEST_CASE("a sender that asks first is told to go on only when its object is wanted") {
    const ServiceProcess service;
    PresignedUpload upload = presign(service, "abcd1234");
    const std::string asking = "Expect: 100-continue\r\nConnection: close\r\n" + lengthLine(5);
    SUBCASE("wanted") {
        RawConnection connection(service.port());
        connection.send(putHead(upload, asking));
        CHECK(connection.readUntil("\r\n\r\n") == "HTTP/1.1 100 Continue\r\n\r\n");
        connection.send("music");
        CHECK(connection.readToEnd().bytes.starts_with("HTTP/1.1 200 "));
        CHECK(service.requests("PUT", "/store/").at(0).expect == "100-continue");
    }
    SUBCASE("unwanted") {
        upload.uploadHeader = "other";
        RawConnection connection(service.port());
        connection.send(putHead(upload, asking));
        CHECK(connection.readToEnd().bytes.starts_with("HTTP/1.1 403 "));
    }
}

TEST_CASE("a refusal reaches a sender that is still sending") {
    const ServiceProcess service;
    PresignedUpload upload = presign(service, "abcd1234");
    upload.uploadHeader = "other";
    const std::string body(8UL * 1024 * 1024, 'x');
    RawConnection connection(service.port());
    connection.send(putHead(upload, lengthLine(body.size())));
    connection.send(body);
    const RawConnection::Rest rest = connection.readToEnd();
    CHECK(rest.bytes.starts_with("HTTP/1.1 403 "));
    CHECK(rest.bytes.find("Connection: close\r\n") != std::string::npos);
    CHECK(rest.ending == RawConnection::Ending::closed);
}

TEST_CASE("a status is given for the calls that a fault names") {
    ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    service.addFault({{"method", "PUT"}, {"path", "/store/"}, {"calls", {1, 2}}, {"status", 503}});
    CHECK(put(service, upload, "music").status == 503);
    CHECK(put(service, upload, "music").status == 503);
    CHECK_FALSE(std::filesystem::exists(service.data() / "objects/abcd1234/audio"));
    CHECK(put(service, upload, "music").status == 200);
    const auto requests = service.requests("PUT", "/store/");
    REQUIRE(requests.size() == 3);
    CHECK(requests[0].status == 503);
    CHECK(requests[0].receivedBytes == 5);
    CHECK(requests[2].status == 200);
}

TEST_CASE("an answer may be given with its own body and headers") {
    ServiceProcess service;
    service.addFault(
        {{"path", "/api/posts/presign"}, {"status", 200}, {"body", "{\"urls\":"}, {"calls", {1}}});
    service.addFault({{"path", "/api/posts/sync"},
                      {"status", 429},
                      {"body", "slow down"},
                      {"content_type", "text/plain"},
                      {"headers", {{"Retry-After", "7"}}}});
    const HttpAnswer malformed = postJson(service, "/api/posts/presign", json::object());
    CHECK(malformed.status == 200);
    CHECK(malformed.body == "{\"urls\":");
    CHECK(malformed.header("content-type") == "application/json");
    const HttpAnswer busy = postJson(service, "/api/posts/sync", json::object());
    CHECK(busy.status == 429);
    CHECK(busy.body == "slow down");
    CHECK(busy.header("content-type") == "text/plain");
    CHECK(busy.header("retry-after") == "7");
}

TEST_CASE("an answer may be given before the body is read, and ends the connection") {
    ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    service.addFault({{"method", "PUT"}, {"status", 500}, {"read_body", false}});
    RawConnection connection(service.port());
    connection.send(putHead(upload, lengthLine(1000000)));
    const RawConnection::Rest rest = connection.readToEnd();
    CHECK(rest.bytes.starts_with("HTTP/1.1 500 "));
    CHECK(rest.bytes.find("Connection: close\r\n") != std::string::npos);
    CHECK(service.requests("PUT", "/store/").at(0).receivedBytes == 0);
}

TEST_CASE("redirects lead where the fault says, to another origin and in circles") {
    ServiceProcess service;
    const ServiceProcess other;
    for (const int status : {301, 302, 303, 307, 308}) {
        service.clearFaults();
        service.addFault({{"path", "/api/"}, {"status", status}, {"location", other.origin() + "/there"}});
        const HttpAnswer answer = postJson(service, "/api/posts/sync", json::object());
        CHECK(answer.status == status);
        CHECK(answer.header("location") == other.origin() + "/there");
    }
    service.clearFaults();
    service.addFault({{"path", "/posts"}, {"status", 302}, {"location", "/posts"}});
    HttpClient client(service.origin(), {}, HttpClient::Redirects::followed);
    CHECK(client.get("/posts").failure == HttpResult::Failure::tooManyRedirects);
}

TEST_CASE("an answer may be no HTTP at all") {
    ServiceProcess service;
    service.addFault({{"raw", "220 mail.example ready\r\n"}});
    RawConnection connection(service.port());
    connection.send(getPosts);
    CHECK(connection.readToEnd().bytes == "220 mail.example ready\r\n");
    CHECK_FALSE(service.requests().at(0).status);
}

TEST_CASE("a delayed answer comes no earlier") {
    ServiceProcess service;
    service.addFault({{"path", "/posts"}, {"delay_ms", 100}});
    const auto start = std::chrono::steady_clock::now();
    CHECK(get(service, "/posts").status == 200);
    CHECK(std::chrono::steady_clock::now() - start >= std::chrono::milliseconds(100));
}

TEST_CASE("a stalled request is listed, unanswered, and goes on when it is released") {
    ServiceProcess service;
    put(service, presign(service, "abcd1234"), "music");
    service.addFault({{"path", "/api/posts/sync"}, {"stall", true}});
    std::future<HttpAnswer> waiting =
        std::async(std::launch::async, [&] { return sync(service, "abcd1234"); });
    const ServiceRequest stalled = service.awaitRequests(1, "POST", "/api/posts/sync").front();
    CHECK_FALSE(stalled.ended);
    CHECK_FALSE(stalled.status);
    CHECK(service.posts().empty());
    service.clearFaults();
    CHECK(waiting.get().status == 200);
    CHECK(service.posts().size() == 1);
}

TEST_CASE("a release lets a stall go on and keeps the fault") {
    ServiceProcess service;
    service.addFault({{"path", "/posts"}, {"stall", true}, {"calls", {1}}});
    service.addFault({{"path", "/posts"}, {"status", 500}, {"calls", {2}}});
    RawConnection connection(service.port());
    connection.send(getPosts);
    service.awaitRequests(1, "GET", "/posts");
    service.releaseStalls();
    CHECK(connection.readToEnd().bytes.starts_with("HTTP/1.1 200 "));
    CHECK(get(service, "/posts").status == 500);
}

TEST_CASE("a stall that nobody releases ends in a closed connection") {
    ServiceProcess service;
    service.addFault({{"stall", true}, {"stall_limit_ms", 50}});
    RawConnection connection(service.port());
    connection.send(getPosts);
    CHECK(connection.readToEnd().bytes.empty());
    CHECK_FALSE(service.awaitEnded().front().status);
}

TEST_CASE("a stalled request ends when its sender has gone") {
    ServiceProcess service;
    service.addFault({{"stall", true}});
    RawConnection connection(service.port());
    connection.send(getPosts);
    service.awaitRequests(1, "GET", "/posts");
    connection.close();
    CHECK_FALSE(service.awaitEnded().front().status);
}

TEST_CASE("a connection may close when so much of a body has come") {
    ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    for (const int bytes : {0, 1000000}) {
        service.clearFaults();
        service.addFault({{"method", "PUT"}, {"close_after_request_bytes", bytes}});
        HttpClient client = clientOf(service);
        const std::string body(16UL * 1024 * 1024, 'x');
        CHECK_FALSE(client.put(upload.target, {{"X-Cadora-Upload", upload.uploadHeader}}, body, "audio/mp4"));
        const ServiceRequest request = service.awaitEnded().back();
        CHECK(request.receivedBytes == static_cast<std::uint64_t>(bytes));
        CHECK_FALSE(request.status);
    }
    CHECK_FALSE(std::filesystem::exists(service.data() / "objects/abcd1234/audio"));
    CHECK(std::filesystem::is_empty(service.data() / "incoming"));
}

TEST_CASE("a connection may be reset when so much of a body has come") {
    ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    service.addFault({{"method", "PUT"}, {"reset_after_request_bytes", 5}});
    RawConnection connection(service.port());
    connection.send(putHead(upload, lengthLine(10)) + "music");
    CHECK(connection.readToEnd().ending == RawConnection::Ending::reset);
}

TEST_CASE("an upload may stall and go on") {
    ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    service.addFault({{"method", "PUT"}, {"stall_after_request_bytes", 2}});
    std::future<HttpAnswer> waiting =
        std::async(std::launch::async, [&] { return put(service, upload, "music"); });
    service.awaitRequests(1, "PUT", "/store/");
    CHECK_FALSE(std::filesystem::exists(service.data() / "objects/abcd1234/audio"));
    service.releaseStalls();
    CHECK(waiting.get().status == 200);
    CHECK(readFile(service.data() / "objects/abcd1234/audio") == "music");
}

TEST_CASE("an answer may be lost after its request was carried out") {
    ServiceProcess service;
    put(service, presign(service, "abcd1234"), "music");
    service.addFault({{"path", "/api/posts/sync"}, {"calls", {1}}, {"close_after_response_bytes", 0}});
    const json body = {{"uuid", "abcd1234"}, {"visibility", "private"}, {"uploaded_files", {"audio"}}};
    CHECK_FALSE(clientOf(service).post("/api/posts/sync", apiHeaders(), body.dump(), "application/json"));
    CHECK(service.posts().size() == 1);
    CHECK(json::parse(sync(service, "abcd1234").body).at("post_id") == 1);
}

TEST_CASE("an answer may break off after so many bytes") {
    ServiceProcess service;
    SUBCASE("counted from its start") {
        service.addFault({{"path", "/posts"}, {"close_after_response_bytes", 12}});
        RawConnection connection(service.port());
        connection.send(getPosts);
        CHECK(connection.readToEnd().bytes == "HTTP/1.1 200");
    }
    SUBCASE("counted from its body") {
        service.addFault(
            {{"path", "/posts"}, {"close_after_response_bytes", 9}, {"count_response_from", "body"}});
        RawConnection connection(service.port());
        connection.send(getPosts);
        CHECK(connection.readToEnd().bytes.ends_with("\r\n\r\n<!doctype"));
    }
    SUBCASE("by a reset") {
        service.addFault({{"path", "/posts"}, {"reset_after_response_bytes", 12}});
        RawConnection connection(service.port());
        connection.send(getPosts);
        CHECK(connection.readToEnd().ending == RawConnection::Ending::reset);
    }
    SUBCASE("beyond its end, which spoils nothing") {
        service.addFault({{"path", "/posts"}, {"close_after_response_bytes", 1000000}});
        CHECK(get(service, "/posts").status == 200);
    }
}

TEST_CASE("an answer may stall in its middle, its request logged as ended, and go on") {
    ServiceProcess service;
    service.addFault(
        {{"path", "/posts"}, {"stall_after_response_bytes", 9}, {"count_response_from", "body"}});
    RawConnection connection(service.port());
    connection.send(getPosts);
    CHECK(connection.readUntil("<!doctype").ends_with("\r\n\r\n<!doctype"));
    CHECK(service.requests().front().ended);
    service.clearFaults();
    CHECK(connection.readUntil("</html>\n").starts_with(" html>"));
}

TEST_CASE("a paced transfer pauses and arrives whole in both directions") {
    ServiceProcess service;
    const PresignedUpload upload = presign(service, "abcd1234");
    service.addFault({{"method", "PUT"}, {"pace_bytes", 1}, {"pace_ms", 20}, {"calls", {1}}});
    const auto start = std::chrono::steady_clock::now();
    CHECK(put(service, upload, "music").status == 200);
    CHECK(std::chrono::steady_clock::now() - start >= std::chrono::milliseconds(100));
    CHECK(readFile(service.data() / "objects/abcd1234/audio") == "music");
    service.addFault({{"path", "/posts"}, {"pace_bytes", 1000}, {"pace_ms", 1}});
    CHECK(get(service, "/posts").body.ends_with("</html>\n"));
}

TEST_CASE("an answer over HTTPS that breaks off is known to be broken") {
    ServiceProcess::Options options;
    options.transport = ServiceTransport::https;
    ServiceProcess service(options);
    service.addFault(
        {{"path", "/posts"}, {"close_after_response_bytes", 9}, {"count_response_from", "body"}});
    CHECK_FALSE(clientOf(service).get("/posts"));
    service.clearFaults();
    CHECK(get(service, "/posts").status == 200);
}

TEST_CASE("what tests ask for is neither spoiled nor logged") {
    ServiceProcess service;
    service.addFault({{"status", 500}});
    CHECK(service.posts().empty());
    CHECK(service.requests().empty());
    const json faults = json::parse(get(service, "/faults").body).at("faults");
    REQUIRE(faults.size() == 1);
    CHECK(faults.at(0) == json{{"id", 1}, {"status", 500}, {"matched", 0}});
    CHECK(get(service, "/posts").status == 500);
    CHECK(json::parse(get(service, "/faults").body).at("faults").at(0).at("matched") == 1);
    service.clearFaults();
    CHECK(get(service, "/posts").status == 200);
}
