#include "auth/WebAuthController.h"

#include "api/AuthError.h"
#include "fakes/Awaiting.h"
#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <thread>

using namespace cadora;
using test::FakeWindow;
using test::TestPlatform;

namespace {

const URL startURL = URL::constant("https://site.example/sign-in?next=a%20b");
const URL callbackURL = URL::constant("cadora://auth?token=t&user_id=u");

PlatformError cancellation() {
    return {WebAuthenticationSession::errorDomain, WebAuthenticationSession::canceledLogin, "cancelled"};
}

std::shared_ptr<FakeWindow> makeWindow() {
    return std::make_shared<FakeWindow>(WindowDescription(), nullptr);
}

// A controller of which a test asks one visit or several.
struct Visits {
    TestPlatform platform;
    WebAuthController controller;

    test::Awaited<URL> begin(std::shared_ptr<Window> anchor = nullptr) {
        auto visit =
            test::start(platform.mainActor, controller.authenticate(startURL, "cadora", std::move(anchor)));
        platform.mainActor.runUntilIdle();
        return visit;
    }

    void end(std::size_t visit, std::optional<URL> url, std::exception_ptr error) {
        platform.webAuthentication.sessions.at(visit)->handler(std::move(url), std::move(error));
        platform.mainActor.runUntilIdle();
    }
};

} // namespace

TEST_CASE("a visit opens the page as it was given and yields the callback's URL") {
    Visits visits;
    const auto visit = visits.begin();
    REQUIRE(visits.platform.webAuthentication.sessions.size() == 1);
    const auto& session = *visits.platform.webAuthentication.sessions[0];
    CHECK(session.url == startURL);
    CHECK(session.callbackURLScheme == "cadora");
    CHECK(session.provider == &visits.controller);
    CHECK(session.isStarted);
    CHECK_FALSE(visit.outcome->ended());

    visits.end(0, callbackURL, nullptr);
    CHECK(visit.outcome->value == callbackURL);
}

TEST_CASE("a URL counts, whatever error stands beside it") {
    Visits visits;
    const auto visit = visits.begin();
    visits.end(0, callbackURL, std::make_exception_ptr(cancellation()));
    CHECK(visit.outcome->value == callbackURL);
}

TEST_CASE("the platform's error is thrown unchanged") {
    Visits visits;
    const auto visit = visits.begin();
    visits.end(0, std::nullopt, std::make_exception_ptr(cancellation()));
    CHECK(visit.outcome->as<PlatformError>() == cancellation());
}

TEST_CASE("a visit that ends with neither URL nor error is a bad response") {
    Visits visits;
    const auto visit = visits.begin();
    visits.end(0, std::nullopt, nullptr);
    CHECK(visit.outcome->as<AuthError>() == AuthError::badResponse());
}

TEST_CASE("a page that can't be presented is a bad response") {
    Visits visits;
    visits.platform.webAuthentication.sessionsStart = false;
    const auto visit = visits.begin();
    CHECK(visit.outcome->as<AuthError>() == AuthError::badResponse());
}

TEST_CASE("a visit that ends within its own start is heard") {
    Visits visits;
    visits.platform.webAuthentication.sessionsEndWith = callbackURL;
    const auto visit = visits.begin();
    CHECK(visit.outcome->value == callbackURL);
}

TEST_CASE("a page that both ends and can't be presented resumes its task once") {
    Visits visits;
    visits.platform.webAuthentication.sessionsStart = false;
    visits.platform.webAuthentication.sessionsEndWith = callbackURL;
    const auto visit = visits.begin();
    CHECK(visit.outcome->as<AuthError>() == AuthError::badResponse());
    CHECK_FALSE(visit.outcome->value);
}

TEST_CASE("a visit that ends on another thread resumes its task on the main actor") {
    Visits visits;
    const auto visit = visits.begin();
    std::thread([&] { visits.platform.webAuthentication.sessions[0]->handler(callbackURL, nullptr); }).join();
    CHECK_FALSE(visit.outcome->ended());
    visits.platform.mainActor.runUntilIdle();
    CHECK(visit.outcome->value == callbackURL);
}

TEST_CASE("a visit that ends twice resumes its task once") {
    Visits visits;
    const auto visit = visits.begin();
    const auto& handler = visits.platform.webAuthentication.sessions[0]->handler;
    handler(callbackURL, nullptr);
    handler(std::nullopt, std::make_exception_ptr(cancellation()));
    visits.platform.mainActor.runUntilIdle();
    visits.end(0, std::nullopt, nullptr);
    CHECK(visit.outcome->value == callbackURL);
    CHECK_FALSE(visit.outcome->error);
}

TEST_CASE("the end of a visit whose task was cancelled is ignored") {
    Visits visits;
    auto visit = visits.begin();
    visit.task.cancel();
    visits.platform.mainActor.runUntilIdle();
    REQUIRE(visit.outcome->as<CancellationError>());
    visits.end(0, callbackURL, nullptr);
    CHECK_FALSE(visit.outcome->value);
}

TEST_CASE("the end of a visit whose task and controller are gone is ignored") {
    TestPlatform platform;
    const auto outcome = std::make_shared<test::Outcome<URL>>();
    {
        test::ManualMainActor shortLived;
        WebAuthController controller;
        shortLived.start(test::recordOutcome(controller.authenticate(startURL, "cadora", nullptr), outcome));
        shortLived.runUntilIdle();
    }
    platform.webAuthentication.sessions.at(0)->handler(callbackURL, nullptr);
    platform.mainActor.runUntilIdle();
    CHECK_FALSE(outcome->ended());
}

TEST_CASE("a second visit leaves the first one its own end") {
    Visits visits;
    const auto first = visits.begin();
    const auto second = visits.begin();
    REQUIRE(visits.platform.webAuthentication.sessions.size() == 2);

    visits.end(0, std::nullopt, std::make_exception_ptr(cancellation()));
    CHECK(first.outcome->as<PlatformError>() == cancellation());
    CHECK_FALSE(second.outcome->ended());
    visits.end(1, callbackURL, nullptr);
    CHECK(second.outcome->value == callbackURL);
}

TEST_CASE("the latest session is kept after its end, until the next visit") {
    Visits visits;
    auto& sessions = visits.platform.webAuthentication.sessions;
    visits.begin();
    visits.end(0, callbackURL, nullptr);
    const std::weak_ptr<test::FakeWebAuthenticationSession> session = sessions[0];
    sessions.clear();
    CHECK_FALSE(session.expired());
    visits.begin();
    CHECK(session.expired());
}

TEST_CASE("a sign-in is presented over the window that the visit names") {
    Visits visits;
    visits.platform.application.makeWindow({}, nullptr);
    const auto anchor = makeWindow();
    visits.begin(anchor);
    CHECK(visits.controller.presentationAnchor() == anchor);
    const auto other = makeWindow();
    visits.begin(other);
    CHECK(visits.controller.presentationAnchor() == other);
}

TEST_CASE("a visit that names no window is presented over the program's first one") {
    Visits visits;
    visits.begin(makeWindow());
    visits.begin();
    const auto first = visits.platform.application.makeWindow({}, nullptr);
    visits.platform.application.makeWindow({}, nullptr);
    CHECK(visits.controller.presentationAnchor() == first);
}

TEST_CASE("without any window, a sign-in is presented over a fresh one that is not shown") {
    Visits visits;
    visits.begin();
    const auto anchor = visits.controller.presentationAnchor();
    REQUIRE(anchor);
    REQUIRE(visits.platform.application.madeWindows.size() == 1);
    CHECK(anchor == visits.platform.application.madeWindows[0]);
    CHECK_FALSE(visits.platform.application.madeWindows[0]->isShown);
}

TEST_CASE("cancelling ends every visit that is under way, not those that have ended or begin afterwards") {
    Visits visits;
    visits.begin();
    visits.end(0, callbackURL, nullptr);
    const auto first = visits.begin();
    const auto second = visits.begin();
    visits.controller.cancelVisits();
    const auto later = visits.begin();
    const auto& sessions = visits.platform.webAuthentication.sessions;
    CHECK(sessions[0]->cancellations == 0);
    CHECK(sessions[1]->cancellations == 1);
    CHECK(sessions[2]->cancellations == 1);
    CHECK(sessions[3]->cancellations == 0);
    visits.end(1, std::nullopt, std::make_exception_ptr(cancellation()));
    CHECK(first.outcome->as<PlatformError>() == cancellation());
    visits.controller.cancelVisits();
    CHECK(sessions[2]->cancellations == 1);
    CHECK(sessions[3]->cancellations == 1);
}
