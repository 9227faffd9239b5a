#include "api/AuthenticatedRequest.h"

#include "api/AuthError.h"
#include "fakes/Awaiting.h"
#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

using namespace cadora;
using test::await;
using test::TestPlatform;

namespace {

URLRequest request() {
    URLRequest result{URL::constant("https://api.example/api/x")};
    result.httpMethod = "POST";
    result.headers.setValue("application/json", "Content-Type");
    result.httpBody = "{}";
    return result;
}

} // namespace

TEST_CASE("with both credentials stored, exactly three headers are added") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "t0ken ");
    platform.keychain.store("cadoraUserId", "42");
    URLRequest to = request();
    AuthenticatedRequest::applyHeaders(to);
    CHECK(to.headers.size() == 4);
    CHECK(to.headers.value("Authorization") == "Bearer t0ken ");
    CHECK(to.headers.value("X-Cadora-User-Id") == "42");
    CHECK(to.headers.value("Accept") == "application/json");
}

TEST_CASE("without a token no authorization is sent, but the rest is") {
    TestPlatform platform;
    platform.keychain.store("cadoraUserId", "42");
    URLRequest to = request();
    AuthenticatedRequest::applyHeaders(to);
    CHECK_FALSE(to.headers.value("Authorization"));
    CHECK(to.headers.value("X-Cadora-User-Id") == "42");
    CHECK(to.headers.value("Accept") == "application/json");
}

TEST_CASE("headers that stand already are replaced") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "new");
    URLRequest to = request();
    to.headers.setValue("text/html", "accept");
    to.headers.setValue("Bearer old", "authorization");
    AuthenticatedRequest::applyHeaders(to);
    CHECK(to.headers.value("Accept") == "application/json");
    CHECK(to.headers.value("Authorization") == "Bearer new");
    CHECK(to.headers.size() == 3);
}

TEST_CASE("credentials are read anew for each request, and the request is sent as it was otherwise") {
    TestPlatform platform;
    platform.urlSession.answer("/api/x", 200, "body");
    platform.keychain.store("cadoraToken", "one");
    const auto answer = await(platform.mainActor, AuthenticatedRequest::send(request()));
    REQUIRE(answer.value);
    CHECK(answer.value->data == "body");
    platform.keychain.store("cadoraToken", "two");
    await(platform.mainActor, AuthenticatedRequest::send(request()));
    REQUIRE(platform.urlSession.sent.size() == 2);
    CHECK(platform.urlSession.sent[0].request.headers.value("Authorization") == "Bearer one");
    CHECK(platform.urlSession.sent[1].request.headers.value("Authorization") == "Bearer two");
    CHECK(platform.urlSession.sent[0].request.httpMethod == "POST");
    CHECK(platform.urlSession.sent[0].request.httpBody == "{}");
    CHECK(platform.urlSession.sent[0].request.timeoutInterval == std::chrono::seconds(60));
}

TEST_CASE("a 401 is never handed to the caller, and leaves the credentials alone") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "t");
    platform.urlSession.answer("/api/x", 401, "{}");
    const auto outcome = await(platform.mainActor, AuthenticatedRequest::send(request()));
    CHECK(outcome.as<AuthError>() == AuthError::refreshRequiresUI());
    CHECK(platform.urlSession.sent.size() == 1);
    CHECK(platform.keychain.stored("cadoraToken") == "t");
}

TEST_CASE("every other status is the caller's to judge") {
    for (const int status : {200, 201, 302, 403, 404, 500}) {
        TestPlatform platform;
        platform.urlSession.answer("/api/x", status);
        const auto outcome = await(platform.mainActor, AuthenticatedRequest::send(request()));
        REQUIRE(outcome.value);
        CHECK(outcome.value->response.statusCode == status);
    }
}

TEST_CASE("an answer that is not HTTP is a bad response") {
    TestPlatform platform;
    platform.urlSession.answerNotHTTP("/api/x");
    const auto outcome = await(platform.mainActor, AuthenticatedRequest::send(request()));
    CHECK(outcome.as<AuthError>() == AuthError::badResponse());
}

TEST_CASE("a transport error reaches the caller unchanged, and nothing is sent again") {
    TestPlatform platform;
    const PlatformError offline("URLSession", 7, "Couldn’t connect to api.example: Connection refused");
    platform.urlSession.fail("/api/x", std::make_exception_ptr(offline));
    const auto outcome = await(platform.mainActor, AuthenticatedRequest::send(request()));
    CHECK(outcome.as<PlatformError>() == offline);
    CHECK(platform.urlSession.sent.size() == 1);
}
