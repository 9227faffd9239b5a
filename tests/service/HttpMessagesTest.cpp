#include "service/HttpMessages.h"

#include <string>
#include <vector>

#include <doctest/doctest.h>

using namespace cadora::service;

namespace {

Request requestOf(const std::string& head) {
    std::optional<Request> request = parseRequest(head);
    REQUIRE(request);
    return *request;
}

} // namespace

TEST_CASE("header fields are found in any case, with their values as sent") {
    const HeaderFields fields = requestOf("GET /a:b HTTP/1.1\r\nHOST: x:1\r\nb: 1\r\nB:\t2 \r\nEmpty:\r\n"
                                          "Percent: %41+b\r\n\r\n")
                                    .headers;
    CHECK(fields.value("host") == "x:1");
    CHECK(fields.values("b") == std::vector<std::string>{"1", "2"});
    CHECK(fields.has("empty"));
    CHECK(fields.values("empty") == std::vector<std::string>{""});
    CHECK(fields.value("percent") == "%41+b");
    CHECK(fields.value("missing").empty());
    CHECK_FALSE(fields.has("missing"));
    CHECK(fields.names() == std::vector<std::string>{"b", "empty", "host", "percent"});
}

TEST_CASE("a head without fields has none") {
    CHECK(HeaderFields().names().empty());
    CHECK(requestOf("GET / HTTP/1.1\r\n\r\n").headers.names().empty());
}

TEST_CASE("a target is decoded into its path and its parameters") {
    const Request request = requestOf("GET /a%20b+c/%zz%2?x=1%262&y=a+b&z&x=3 HTTP/1.0\r\n\r\n");
    CHECK(request.method == "GET");
    CHECK(request.path == "/a b+c/%zz%2");
    CHECK(request.version == "HTTP/1.0");
    CHECK_FALSE(request.keepsConnection);
    CHECK(request.parameter("y") == "a b");
    CHECK(request.parameter("z") == "");
    CHECK_FALSE(request.parameter("x"));
    CHECK_FALSE(request.parameter("w"));
}

TEST_CASE("what is no head of a request is refused") {
    for (const std::string head :
         {"", "\r\n\r\n", "GET / HTTP/1.1", "GET / HTTP/1.1\r\n", "GET /\r\n\r\n", "hello\r\n\r\n",
          "GET / HTTP/1.1\r\nno field\r\n\r\n", "PUT / HTTP/1.1\r\nContent-Length: five\r\n\r\n"}) {
        CAPTURE(head);
        CHECK_FALSE(parseRequest(head));
    }
    CHECK_FALSE(parseRequest("GET / HTTP/1.1\r\na: " + std::string(longestHead, 'x') + "\r\n\r\n"));
}

TEST_CASE("a body is announced and not waited for") {
    CHECK(requestOf("PUT / HTTP/1.1\r\nContent-Length: 5\r\nExpect: 100-continue\r\n\r\n")
              .headers.value("content-length") == "5");
    CHECK(requestOf("PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n").headers.has("transfer-encoding"));
}

TEST_CASE("one range of bytes is understood") {
    const auto range = [](const std::string& field) { return parseRange(field).value_or(ByteRange{}); };
    CHECK(range("bytes=2-4").first == 2);
    CHECK(range("bytes=2-4").last == 4);
    CHECK(range("bytes=7-").first == 7);
    CHECK_FALSE(range("bytes=7-").last);
    CHECK_FALSE(range("bytes=-3").first);
    CHECK(range("bytes=-3").last == 3);
    for (const std::string field : {"", "bytes=", "bytes=-", "bytes=4-2", "bytes=1-2,4-5", "bytes=x-2",
                                    "lines=1-2", "bytes=99999999999999999999-", "bytes=1"}) {
        CAPTURE(field);
        CHECK_FALSE(parseRange(field));
    }
}

TEST_CASE("a head is written with its fields and ends with an empty line") {
    Response response;
    response.status = 404;
    response.setBody("gone", "text/plain");
    CHECK(headOf(response) == "HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\n\r\n");
    CHECK(response.length() == 4);
}
