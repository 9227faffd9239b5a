#include "hosts/linux/network/HTTPRedirect.h"

#include "base/Error.h"
#include "hosts/linux/network/HTTPOrigin.h"

#include <doctest/doctest.h>

#include <stdexcept>
#include <string>

namespace cadora {

namespace {

HTTPOrigin originOf(const std::string& url) {
    const auto origin = HTTPOrigin::of(url);
    if (!origin) {
        throw std::runtime_error("no origin in " + url);
    }
    return *origin;
}

HTTPRequest request(const std::string& url, const std::string& method = "POST") {
    HTTPRequest request{url, originOf(url), method, {}};
    request.headers.setValue("Bearer x", "Authorization");
    request.headers.setValue("7", "X-Cadora-User-Id");
    request.headers.setValue("application/json", "Accept");
    return request;
}

bool keepsCredentials(const HTTPRequest& next) {
    CHECK(next.headers.value("Accept") == "application/json");
    CHECK(next.headers.value("Authorization").has_value() ==
          next.headers.value("X-Cadora-User-Id").has_value());
    return next.headers.value("Authorization").has_value();
}

} // namespace

TEST_CASE("an origin is scheme, host and port, however they are written") {
    CHECK(HTTPOrigin::of("https://Example.ORG/x") == HTTPOrigin::of("HTTPS://example.org:443?y"));
    CHECK(HTTPOrigin::of("http://example.org") == HTTPOrigin::of("http://example.org:80/"));
    CHECK(HTTPOrigin::of("http://example.org") != HTTPOrigin::of("https://example.org"));
    CHECK(HTTPOrigin::of("http://example.org") != HTTPOrigin::of("http://example.org:8080"));
    CHECK(HTTPOrigin::of("http://example.org") != HTTPOrigin::of("http://www.example.org"));
    CHECK(originOf("https://example.org:443/x").authority() == "example.org");
    CHECK(originOf("https://example.org:80/x").authority() == "example.org:80");
    CHECK(originOf("http://[::1]:8080/x").authority() == "[::1]:8080");
    CHECK(originOf("http://[::1]/x").host == "::1");
}

TEST_CASE("relative URLs, other schemes and URLs with a user name have no origin to send to") {
    for (const char* url : {"", "/x", "//example.org/x", "example.org", "ftp://example.org/", "file:///x",
                            "http://", "https:///x", "http://name@example.org/", "http://:x@example.org/"}) {
        CAPTURE(std::string(url));
        CHECK(!HTTPOrigin::of(url));
    }
    CHECK(HTTPOrigin::of("http://" + std::string(253, 'x') + "/"));
    CHECK(!HTTPOrigin::of("http://" + std::string(254, 'x') + "/"));
}

TEST_CASE("the machine itself has several names") {
    for (const char* url :
         {"http://127.0.0.1/", "http://127.1.2.3/", "http://localhost:1/", "https://[::1]/"}) {
        CHECK(originOf(url).isLoopback());
    }
    for (const char* url : {"http://127.example.org/", "http://localhost.example.org/", "http://10.0.0.1/"}) {
        CHECK(!originOf(url).isLoopback());
    }
}

TEST_CASE("credentials stay within scheme, host and port") {
    const HTTPRequest first = request("https://example.org/a");
    CHECK(keepsCredentials(redirected(first, 307, "https://example.org:443/b")));
    CHECK(!keepsCredentials(redirected(first, 307, "https://example.org:8443/b")));
    CHECK(!keepsCredentials(redirected(first, 307, "https://www.example.org/b")));
    CHECK(!keepsCredentials(redirected(request("http://example.org/a"), 307, "https://example.org/b")));
}

TEST_CASE("a redirect never leads from https to http") {
    CHECK_THROWS_AS(redirected(request("https://example.org/a"), 302, "http://example.org/b"), PlatformError);
    CHECK(redirected(request("http://example.org/a"), 302, "https://example.org/b").url ==
          "https://example.org/b");
}

TEST_CASE("a redirect that drops the body drops what describes it") {
    HTTPRequest first = request("http://example.org/a");
    first.headers.setValue("audio/mp4", "content-type");
    first.headers.setValue("en", "Content-Language");
    for (const long status : {301L, 302L, 303L}) {
        const HTTPRequest next = redirected(first, status, "http://example.org/b");
        CHECK(next.method == "GET");
        CHECK(next.body == HTTPRequest::Body::dropped);
        CHECK(next.headers.size() == 3);
        // Once dropped, it stays so.
        CHECK(redirected(next, 307, "http://example.org/c").body == HTTPRequest::Body::dropped);
    }
    for (const long status : {307L, 308L}) {
        const HTTPRequest next = redirected(first, status, "http://example.org/b");
        CHECK(next.method == "POST");
        CHECK(next.body == HTTPRequest::Body::data);
        CHECK(next.headers.value("Content-Type") == "audio/mp4");
    }
}

TEST_CASE("a redirect that asks for nothing else repeats a PUT with its body") {
    for (const HTTPRequest::Body body : {HTTPRequest::Body::data, HTTPRequest::Body::file}) {
        HTTPRequest first = request("http://example.org/a", "PUT");
        first.body = body;
        first.headers.setValue("audio/mp4", "Content-Type");
        for (const long status : {301L, 302L, 307L, 308L}) {
            const HTTPRequest next = redirected(first, status, "http://example.org/b");
            CHECK(next.method == "PUT");
            CHECK(next.body == body);
            CHECK(next.headers.value("Content-Type") == "audio/mp4");
        }
    }
}

TEST_CASE("a file never stays behind: where it may not go along, the redirect is not followed") {
    for (const char* method : {"PUT", "POST"}) {
        HTTPRequest upload = request("http://example.org/a", method);
        upload.body = HTTPRequest::Body::file;
        CHECK_FALSE(isFollowed(upload, 303));
        for (const long status : {301L, 302L, 307L, 308L}) {
            CHECK(isFollowed(upload, status));
            CHECK(redirected(upload, status, "http://example.org/b").body == HTTPRequest::Body::file);
            CHECK(redirected(upload, status, "http://example.org/b").method == method);
        }
    }
    CHECK(isFollowed(request("http://example.org/a", "PUT"), 303));
    CHECK_FALSE(isFollowed(request("http://example.org/a", "GET"), 300));
    CHECK_FALSE(isFollowed(request("http://example.org/a", "GET"), 304));
}

} // namespace cadora
