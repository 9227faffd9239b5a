#include "api/PresignClient.h"

#include "api/AuthError.h"
#include "base/Deployment.h"
#include "base/Json.h"
#include "fakes/Awaiting.h"
#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

using namespace cadora;
using test::await;
using test::TestPlatform;

namespace {

constexpr const char* path = "/api/posts/presign";

test::Outcome<PresignResponse> presign(TestPlatform& platform) {
    const std::vector<std::string> files{"audio"};
    return await(platform.mainActor, PresignClient::presign("k3x9q0ab", files));
}

} // namespace

TEST_CASE("the presign call is a POST of JSON below the API's origin, with the credentials") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "t");
    platform.urlSession.answer(path, 200, R"({"urls":{"audio":"https://s/1"}})");
    const auto outcome = presign(platform);
    REQUIRE(outcome.value);
    CHECK(outcome.value->urls.at("audio") == "https://s/1");
    CHECK_FALSE(outcome.value->headers);
    CHECK_FALSE(outcome.value->expires_in);
    REQUIRE(platform.urlSession.sent.size() == 1);
    const URLRequest& request = platform.urlSession.sent[0].request;
    CHECK(request.url.text() == deployment::apiOrigin() + "/api/posts/presign");
    CHECK(request.httpMethod == "POST");
    CHECK(request.timeoutInterval == std::chrono::seconds(60));
    CHECK(request.headers.value("Content-Type") == "application/json");
    CHECK(request.headers.value("Accept") == "application/json");
    CHECK(request.headers.value("Authorization") == "Bearer t");
    CHECK(request.httpBody == R"({"uuid":"k3x9q0ab","files":["audio"]})");
}

TEST_CASE("writing the presign request, signing it and reading its answer are done off the main thread") {
    for (const char* body : {R"({"urls":{}})", "{}"}) {
        TestPlatform platform;
        platform.background.holdsJobs = true;
        platform.urlSession.answer(path, 200, body);
        const std::vector<std::string> files{"audio"};
        const auto awaited = test::start(platform.mainActor, PresignClient::presign("k3x9q0ab", files));
        for (int job = 0; job < 3; ++job) {
            platform.mainActor.runUntilIdle();
            CHECK(platform.urlSession.sent.size() == (job == 2 ? 1 : 0));
            CHECK_FALSE(awaited.outcome->ended());
            REQUIRE(platform.background.runHeld() == 1);
            CHECK_FALSE(awaited.outcome->ended());
        }
        platform.mainActor.runUntilIdle();
        CHECK(awaited.outcome->ended());
    }
}

TEST_CASE("a request that can't be written as JSON isn't noticed on the main thread either") {
    TestPlatform platform;
    platform.background.holdsJobs = true;
    const std::vector<std::string> files{"\xFF"};
    const auto awaited = test::start(platform.mainActor, PresignClient::presign("u", files));
    platform.mainActor.runUntilIdle();
    CHECK_FALSE(awaited.outcome->ended());
    CHECK(platform.background.runHeld() == 1);
    platform.mainActor.runUntilIdle();
    CHECK(awaited.outcome->as<json::EncodingError>());
}

TEST_CASE("a 200 without urls fails as what it is: no such record") {
    TestPlatform platform;
    platform.urlSession.answer(path, 200, "{}");
    CHECK(presign(platform).as<json::DecodingError>());
}

TEST_CASE("any status but 200 fails with it, however good the body, and is not tried again") {
    for (const int status : {201, 204, 302, 403, 500}) {
        TestPlatform platform;
        platform.urlSession.answer(path, status, R"({"urls":{"audio":"https://s/1"}})");
        CHECK(presign(platform).as<AuthError>() == AuthError::http(status));
        CHECK(platform.urlSession.sent.size() == 1);
    }
}

TEST_CASE("a presign call answered 401 asks for a sign-in") {
    TestPlatform platform;
    platform.urlSession.answer(path, 401);
    CHECK(presign(platform).as<AuthError>() == AuthError::refreshRequiresUI());
}

TEST_CASE("a presign call whose job can't be written as JSON sends nothing") {
    TestPlatform platform;
    const std::vector<std::string> files{"\xFF"};
    const auto outcome = await(platform.mainActor, PresignClient::presign("u", files));
    CHECK(outcome.as<json::EncodingError>());
    CHECK(platform.urlSession.sent.empty());
}
