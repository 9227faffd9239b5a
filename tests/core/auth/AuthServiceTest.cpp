#include "auth/AuthService.h"

#include "api/AuthError.h"
#include "auth/KeychainStore.h"
#include "base/Deployment.h"
#include "fakes/Awaiting.h"
#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

using namespace cadora;
using test::TestPlatform;
using Calls = std::vector<std::string>;

namespace {

// Signs in with a page that leads to this callback.
test::Outcome<std::monostate> signIn(TestPlatform& platform, const std::string& query) {
    platform.webAuthentication.sessionsEndWith = URL::constant("cadora://auth?" + query);
    return test::await(platform.mainActor, AuthService::shared().signInWithApple(nullptr));
}

void storeEarlierCredentials(TestPlatform& platform) {
    platform.keychain.store("cadoraToken", "old token");
    platform.keychain.store("cadoraUserId", "old user");
    platform.keychain.store("appleEmail", "old@mail.example");
}

void checkEarlierCredentials(const TestPlatform& platform) {
    CHECK(platform.keychain.calls.empty());
    CHECK(platform.keychain.items.size() == 3);
    CHECK(platform.keychain.stored("cadoraToken") == "old token");
}

} // namespace

TEST_CASE("there is one service") {
    CHECK(&AuthService::shared() == &AuthService::shared());
}

TEST_CASE("a sign-in visits the service's page, over the window it is given") {
    TestPlatform platform;
    const auto window = platform.application.makeWindow({}, nullptr);
    const auto anchor = platform.application.makeWindow({}, nullptr);
    const auto signingIn = test::start(platform.mainActor, AuthService::shared().signInWithApple(anchor));
    CHECK(platform.webAuthentication.sessions.empty());
    platform.mainActor.runUntilIdle();
    REQUIRE(platform.webAuthentication.sessions.size() == 1);
    const auto& session = *platform.webAuthentication.sessions[0];
    CHECK(session.url.text() == deployment::siteOrigin() + "/auth/apple/desktop");
    CHECK(session.callbackURLScheme == "cadora");
    REQUIRE(session.provider);
    CHECK(session.provider->presentationAnchor() == anchor);
    CHECK_FALSE(signingIn.outcome->ended());
}

TEST_CASE("a callback with token, user id and e-mail stores three items, the token first") {
    TestPlatform platform;
    CHECK(signIn(platform, "token=t&user_id=u&email=e%40mail.example").value);
    CHECK(platform.keychain.items.size() == 3);
    CHECK(platform.keychain.stored("cadoraToken") == "t");
    CHECK(platform.keychain.stored("cadoraUserId") == "u");
    CHECK(platform.keychain.stored("appleEmail") == "e@mail.example");
    CHECK(platform.keychain.calls == Calls{"copy cadoraToken", "add cadoraToken", "copy cadoraUserId",
                                           "add cadoraUserId", "copy appleEmail", "add appleEmail"});
}

TEST_CASE("a callback without an e-mail stores two items") {
    TestPlatform platform;
    CHECK(signIn(platform, "token=t&user_id=u").value);
    CHECK(platform.keychain.items.size() == 2);
    CHECK_FALSE(platform.keychain.stored("appleEmail"));
}

TEST_CASE("a callback without an e-mail leaves an older one in place") {
    TestPlatform platform;
    storeEarlierCredentials(platform);
    CHECK(signIn(platform, "token=t&user_id=u").value);
    CHECK(platform.keychain.stored("cadoraToken") == "t");
    CHECK(platform.keychain.stored("cadoraUserId") == "u");
    CHECK(platform.keychain.stored("appleEmail") == "old@mail.example");
}

TEST_CASE("an Apple ID without an account is an error of its own, and earlier credentials stay") {
    TestPlatform platform;
    storeEarlierCredentials(platform);
    CHECK(signIn(platform, "error=no_account&token=t&user_id=u").as<AuthError>() == AuthError::noAccount());
    checkEarlierCredentials(platform);
}

TEST_CASE("a callback that can't be used is a bad response, and earlier credentials stay") {
    TestPlatform platform;
    storeEarlierCredentials(platform);
    for (const std::string query : {"error=denied", "token=t", "user_id=u", "token=&user_id=u"}) {
        CHECK(signIn(platform, query).as<AuthError>() == AuthError::badResponse());
    }
    checkEarlierCredentials(platform);
}

TEST_CASE("a page that can't be presented is a bad response to the sign-in, and earlier credentials stay") {
    TestPlatform platform;
    storeEarlierCredentials(platform);
    platform.webAuthentication.sessionsStart = false;
    const auto outcome = test::await(platform.mainActor, AuthService::shared().signInWithApple(nullptr));
    CHECK(outcome.as<AuthError>() == AuthError::badResponse());
    checkEarlierCredentials(platform);
}

TEST_CASE("the user's cancellation reaches the caller unchanged, and earlier credentials stay") {
    TestPlatform platform;
    storeEarlierCredentials(platform);
    const auto signingIn = test::start(platform.mainActor, AuthService::shared().signInWithApple(nullptr));
    platform.mainActor.runUntilIdle();
    const PlatformError cancelled(WebAuthenticationSession::errorDomain,
                                  WebAuthenticationSession::canceledLogin, "cancelled");
    platform.webAuthentication.sessions.at(0)->handler(std::nullopt, std::make_exception_ptr(cancelled));
    platform.mainActor.runUntilIdle();
    CHECK(signingIn.outcome->as<PlatformError>() == cancelled);
    checkEarlierCredentials(platform);
}

TEST_CASE("a keychain that takes nothing does not fail a sign-in") {
    TestPlatform platform;
    platform.keychain.addStatus = -25308;
    CHECK(signIn(platform, "token=t&user_id=u&email=e").value);
    CHECK(platform.keychain.items.empty());
}

TEST_CASE("a sign-in tells nobody") {
    TestPlatform platform;
    CHECK(signIn(platform, "token=t&user_id=u").value);
    CHECK(platform.notificationCenter.requests.empty());
    CHECK(platform.systemLog.lines.empty());
    CHECK(platform.application.calls.empty());
}

TEST_CASE("signing out removes all accounts in their order, also the one that sign-in never writes") {
    TestPlatform platform;
    storeEarlierCredentials(platform);
    platform.keychain.store("appleUserId", "from an earlier version");
    AuthService::shared().signOut();
    CHECK(platform.keychain.items.empty());
    CHECK(platform.keychain.calls ==
          Calls{"remove cadoraToken", "remove cadoraUserId", "remove appleUserId", "remove appleEmail"});
}

TEST_CASE("signing out twice is harmless") {
    TestPlatform platform;
    storeEarlierCredentials(platform);
    AuthService::shared().signOut();
    AuthService::shared().signOut();
    CHECK(platform.keychain.items.empty());
}

TEST_CASE("a credential that can't be removed does not keep the others") {
    TestPlatform platform;
    platform.keychain.removeStatus = -25308;
    AuthService::shared().signOut();
    CHECK(platform.keychain.calls.size() == 4);
}

TEST_CASE("a sign-in that has succeeded leaves none open that would take another callback") {
    TestPlatform platform;
    const auto stale = test::start(platform.mainActor, AuthService::shared().signInWithApple(nullptr));
    platform.mainActor.runUntilIdle();
    CHECK(signIn(platform, "token=mine&user_id=1").value);
    CHECK(platform.webAuthentication.sessions.at(0)->cancellations == 1);
    CHECK(platform.webAuthentication.sessions.at(1)->cancellations == 0);
    CHECK(platform.keychain.stored("cadoraToken") == "mine");
}

TEST_CASE("a sign-in that fails leaves the others open") {
    TestPlatform platform;
    const auto waiting = test::start(platform.mainActor, AuthService::shared().signInWithApple(nullptr));
    platform.mainActor.runUntilIdle();
    CHECK(signIn(platform, "error=no_account").as<AuthError>());
    CHECK(signIn(platform, "token=t").as<AuthError>());
    CHECK(platform.webAuthentication.sessions.at(0)->cancellations == 0);
    CHECK_FALSE(waiting.outcome->ended());
}
