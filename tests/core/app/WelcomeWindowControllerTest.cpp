#include "app/WelcomeWindowController.h"

#include "app/Site.h"
#include "auth/AuthService.h"
#include "base/Deployment.h"
#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace cadora;
using test::FakeWindow;
using test::TestPlatform;

namespace {

constexpr const char* opening = "Opening Apple sign-in…";
constexpr auto confirmationTime = std::chrono::milliseconds(1400);

// A window that notes whether it was still there when its delegate had been told of its closing.
class WatchedWindow : public FakeWindow {
public:
    WatchedWindow(WindowDelegate* windowDelegate, std::weak_ptr<WatchedWindow>& self, bool& outlivedClosing)
        : FakeWindow({}, windowDelegate), self_(self), outlivedClosing_(outlivedClosing) {}

    void close() override {
        const auto self = self_;
        bool& outlivedClosing = outlivedClosing_;
        FakeWindow::close();
        outlivedClosing = !self.expired();
    }

private:
    std::weak_ptr<WatchedWindow>& self_;
    bool& outlivedClosing_;
};

Label statusLabel(ColorRole color, const std::string& text) {
    return {.text = text,
            .font = {12, FontWeight::regular},
            .color = color,
            .visibility = Visibility::visible,
            .identifier = "statusLabel"};
}

// The window on the screen, and what its owner hears.
struct Welcome {
    TestPlatform platform;
    std::unique_ptr<WelcomeWindowController> controller = std::make_unique<WelcomeWindowController>();
    std::shared_ptr<FakeWindow> window = show();
    int signInsComplete = 0;

    Welcome() {
        controller->onSignInComplete = [this] { ++signInsComplete; };
    }

    std::shared_ptr<FakeWindow> show() {
        controller->window = platform.application.makeWindow({}, controller.get());
        controller->window->setContentView(controller->makeContent(), *controller);
        return platform.application.madeWindows.back();
    }

    void tap() {
        controller->perform(ViewAction::signInTapped);
        platform.mainActor.runUntilIdle();
    }

    // Ends the latest visit to the sign-in page.
    void signInEnds(const std::string& query) {
        platform.webAuthentication.sessions.back()->handler(URL::constant("cadora://auth?" + query), nullptr);
        platform.mainActor.runUntilIdle();
    }

    void signInFails() {
        const PlatformError cancelled(WebAuthenticationSession::errorDomain,
                                      WebAuthenticationSession::canceledLogin, "The sign-in was cancelled.");
        platform.webAuthentication.sessions.back()->handler(std::nullopt, std::make_exception_ptr(cancelled));
        platform.mainActor.runUntilIdle();
    }

    // As often as the window was closed by the program or by the user.
    auto closings() const { return std::count(window->calls.begin(), window->calls.end(), "close"); }
};

} // namespace

TEST_CASE("the welcome window's content") {
    WelcomeWindowController controller;
    const Label status{.text = "",
                       .font = {12, FontWeight::regular},
                       .color = ColorRole::secondaryLabel,
                       .visibility = Visibility::hidden,
                       .preferredMaxLayoutWidth = 380,
                       .identifier = "statusLabel"};
    const Stack instructions{
        .spacing = 6,
        .views = {Label{"How to send audio", {13, FontWeight::semibold}, ColorRole::label},
                  Label{"Right-click a file → Services → Send to Cadora",
                        {12, FontWeight::regular},
                        ColorRole::secondaryLabel},
                  Label{"Works with WAV · AIFF · MP3 · M4A · AAC · CAF · AU · FLAC",
                        {11, FontWeight::regular},
                        ColorRole::tertiaryLabel}},
        .edgeInsets = {.top = 14, .left = 16, .bottom = 14, .right = 16},
        .background = ColorRole::windowBackground,
        .cornerRadius = 10};
    const Stack notice{
        .spacing = 4,
        .views = {Label{"You need a Cadora account to use this helper. If you don't have an account, please "
                        "download the Cadora app first.",
                        {12, FontWeight::medium},
                        ColorRole::systemRed},
                  LinkButton{Site::domainName() + " →",
                             ViewAction::openCadoraSite,
                             {12, FontWeight::semibold},
                             ColorRole::systemRed}}};
    const ContentView expected{
        .stack = {.spacing = 12,
                  .views = {ApplicationIcon{.width = 88, .height = 88},
                            Label{"Welcome to Cadora Helper", {22, FontWeight::bold}, ColorRole::label},
                            Label{"Push audio straight to your Cadora feed.",
                                  {13, FontWeight::regular},
                                  ColorRole::secondaryLabel},
                            Spacer{8}, instructions, notice, Spacer{8},
                            SignInWithAppleButton{
                                .action = ViewAction::signInTapped, .width = 280, .height = 40},
                            status,
                            Label{"Cadora Helper runs quietly in your menu bar — look for the ◉ icon at the "
                                  "top of your screen.",
                                  {11, FontWeight::regular},
                                  ColorRole::tertiaryLabel}}},
        .margins = {.top = 28, .left = 32, .bottom = 24, .right = 32}};

    CHECK(controller.makeContent() == expected);
    CHECK(controller.statusLabel == status);
}

TEST_CASE("a controller begins without a window") {
    const WelcomeWindowController controller;
    CHECK_FALSE(controller.onSignInComplete);
    CHECK_FALSE(controller.window);
    CHECK_FALSE(controller.statusLabel);
}

TEST_CASE("the link opens the service's site") {
    Welcome welcome;
    welcome.controller->perform(ViewAction::openCadoraSite);
    CHECK(welcome.platform.workspace.openedURLs == std::vector<std::string>{deployment::siteOrigin()});
    CHECK(welcome.platform.webAuthentication.sessions.empty());
}

TEST_CASE("the sign-in button says what comes and opens the sign-in over the window") {
    Welcome welcome;
    welcome.controller->perform(ViewAction::signInTapped);
    const Label expected = statusLabel(ColorRole::secondaryLabel, opening);
    CHECK(welcome.window->labelUpdates == std::vector<Label>{expected});
    CHECK(welcome.controller->statusLabel == expected);

    welcome.platform.mainActor.runUntilIdle();
    REQUIRE(welcome.platform.webAuthentication.sessions.size() == 1);
    welcome.platform.application.madeWindows.clear();
    CHECK(welcome.platform.webAuthentication.sessions[0]->provider->presentationAnchor() == welcome.window);
}

TEST_CASE("a sign-in that succeeds is told, confirmed, and closes the window after a pause") {
    Welcome welcome;
    std::size_t updatesWhenTold = 0;
    welcome.controller->onSignInComplete = [&] { updatesWhenTold = welcome.window->labelUpdates.size(); };
    welcome.tap();
    welcome.signInEnds("token=t&user_id=u&email=zoe%40mail.example");
    CHECK(updatesWhenTold == 1);
    const Label expected = statusLabel(ColorRole::systemGreen, "Signed in as zoe@mail.example ✓");
    CHECK(welcome.window->labelUpdates.back() == expected);
    CHECK(welcome.controller->statusLabel == expected);
    CHECK(welcome.platform.clock.sleeps == std::vector<std::chrono::nanoseconds>{confirmationTime});

    welcome.platform.clock.advance(confirmationTime - std::chrono::nanoseconds(1));
    welcome.platform.mainActor.runUntilIdle();
    CHECK(welcome.closings() == 0);
    welcome.platform.clock.advance(std::chrono::nanoseconds(1));
    welcome.platform.mainActor.runUntilIdle();
    CHECK(welcome.closings() == 1);
    CHECK_FALSE(welcome.controller->window);
    CHECK_FALSE(welcome.controller->statusLabel);
    CHECK(welcome.platform.systemLog.lines.empty());
}

TEST_CASE("a sign-in without an e-mail address is confirmed all the same") {
    Welcome welcome;
    welcome.tap();
    welcome.signInEnds("token=t&user_id=u");
    CHECK(welcome.controller->statusLabel->text == "Signed in as your account ✓");
    CHECK(welcome.signInsComplete == 1);
}

TEST_CASE("a sign-in without an e-mail address shows the one that is stored") {
    Welcome welcome;
    welcome.platform.keychain.store("appleEmail", "old@mail.example");
    welcome.tap();
    welcome.signInEnds("token=t&user_id=u");
    CHECK(welcome.controller->statusLabel->text == "Signed in as old@mail.example ✓");
}

TEST_CASE("a sign-in whose completion nobody wants to hear goes its way") {
    Welcome welcome;
    welcome.controller->onSignInComplete = nullptr;
    welcome.tap();
    welcome.signInEnds("token=t&user_id=u");
    welcome.platform.clock.advance(confirmationTime);
    CHECK(welcome.closings() == 1);
}

TEST_CASE("an Apple ID without an account is told where to make one, and nothing is logged") {
    Welcome welcome;
    welcome.tap();
    welcome.signInEnds("error=no_account");
    CHECK(
        welcome.window->labelUpdates.back() ==
        statusLabel(ColorRole::systemRed, "No Cadora account found for that Apple ID. Create your account in "
                                          "the Cadora app first — get it at " +
                                              Site::domainName() + " — then sign in here."));
    CHECK(welcome.platform.systemLog.lines.empty());
    CHECK(welcome.platform.clock.sleeps.empty());
    CHECK(welcome.closings() == 0);
    CHECK(welcome.signInsComplete == 0);
}

TEST_CASE("any other failure is shown in general words and logged in its own") {
    Welcome welcome;
    const Label expected = statusLabel(ColorRole::systemRed, "Sign-in didn't complete. Please try again.");
    welcome.tap();
    welcome.signInEnds("error=denied");
    CHECK(welcome.window->labelUpdates.back() == expected);
    welcome.tap();
    welcome.signInFails();
    CHECK(welcome.window->labelUpdates.back() == expected);
    CHECK(welcome.platform.systemLog.lines ==
          std::vector<std::string>{"[Cadora Helper] welcome sign-in failed: badResponse",
                                   "[Cadora Helper] welcome sign-in failed: The sign-in was cancelled."});
    CHECK(welcome.platform.clock.sleeps.empty());
    CHECK(welcome.closings() == 0);
    CHECK(welcome.signInsComplete == 0);
}

TEST_CASE("after a failure the button can be pressed again") {
    Welcome welcome;
    welcome.tap();
    welcome.signInFails();
    welcome.tap();
    CHECK(welcome.controller->statusLabel == statusLabel(ColorRole::secondaryLabel, opening));
    welcome.signInEnds("token=t&user_id=u");
    CHECK(welcome.signInsComplete == 1);
}

TEST_CASE("pressing the button twice says the same again and starts a second sign-in") {
    Welcome welcome;
    welcome.tap();
    welcome.tap();
    const Label expected = statusLabel(ColorRole::secondaryLabel, opening);
    CHECK(welcome.window->labelUpdates == std::vector<Label>{expected, expected});
    auto& sessions = welcome.platform.webAuthentication.sessions;
    REQUIRE(sessions.size() == 2);

    for (const auto& session : std::vector(sessions)) {
        session->handler(URL::constant("cadora://auth?token=t&user_id=u"), nullptr);
    }
    welcome.platform.mainActor.runUntilIdle();
    CHECK(welcome.signInsComplete == 2);
    welcome.platform.clock.advance(confirmationTime);
    CHECK(welcome.closings() == 1);
}

TEST_CASE("a window that the user closes lets go of everything but what is called at the sign-in") {
    Welcome welcome;
    welcome.window->close();
    CHECK_FALSE(welcome.controller->window);
    CHECK_FALSE(welcome.controller->statusLabel);
    CHECK(welcome.controller->onSignInComplete);
}

TEST_CASE("a sign-in may complete after its window was closed, and touches no label") {
    Welcome welcome;
    welcome.tap();
    welcome.window->close();
    welcome.signInEnds("token=t&user_id=u");
    CHECK(welcome.signInsComplete == 1);
    CHECK(welcome.platform.keychain.stored("cadoraToken") == "t");
    welcome.platform.clock.advance(confirmationTime);
    CHECK(welcome.window->labelUpdates.size() == 1);
    CHECK_FALSE(welcome.controller->statusLabel);
    CHECK(welcome.closings() == 1);
}

TEST_CASE("a sign-in that fails after its window was closed is only logged") {
    Welcome welcome;
    welcome.tap();
    welcome.window->close();
    welcome.signInFails();
    CHECK(welcome.window->labelUpdates.size() == 1);
    CHECK(welcome.platform.systemLog.lines.size() == 1);
}

TEST_CASE("a window that the user closes during the pause is not closed again") {
    Welcome welcome;
    welcome.tap();
    welcome.signInEnds("token=t&user_id=u");
    welcome.window->close();
    welcome.platform.clock.advance(confirmationTime);
    welcome.platform.mainActor.runUntilIdle();
    CHECK(welcome.closings() == 1);
    CHECK(welcome.platform.clock.sleeperCount() == 0);
}

TEST_CASE("a sign-in without any window runs all the same") {
    TestPlatform platform;
    platform.webAuthentication.sessionsEndWith = URL::constant("cadora://auth?token=t&user_id=u");
    WelcomeWindowController controller;
    int signInsComplete = 0;
    controller.onSignInComplete = [&] { ++signInsComplete; };
    controller.perform(ViewAction::signInTapped);
    platform.mainActor.runUntilIdle();
    platform.clock.advance(confirmationTime);
    CHECK(signInsComplete == 1);
    CHECK_FALSE(controller.statusLabel);
}

TEST_CASE("the window lives until its closing is over, though its controller lets go of it within") {
    Welcome welcome;
    std::weak_ptr<WatchedWindow> watched;
    bool outlivedClosing = false;
    {
        const auto window =
            std::make_shared<WatchedWindow>(welcome.controller.get(), watched, outlivedClosing);
        watched = window;
        welcome.controller->window = window;
    }
    welcome.tap();
    // A sign-in over another window, so that nobody but the controller holds this one when it closes.
    welcome.platform.mainActor.start(AuthService::shared().signInWithApple(welcome.window));
    welcome.platform.mainActor.runUntilIdle();
    welcome.platform.webAuthentication.sessions.front()->handler(
        URL::constant("cadora://auth?token=t&user_id=u"), nullptr);
    welcome.platform.mainActor.runUntilIdle();
    welcome.platform.clock.advance(confirmationTime);
    CHECK(watched.expired());
    CHECK(outlivedClosing);
}

TEST_CASE("a controller that goes before its sign-in begins leaves nothing to do") {
    Welcome welcome;
    welcome.controller->perform(ViewAction::signInTapped);
    welcome.controller.reset();
    welcome.platform.mainActor.runUntilIdle();
    CHECK(welcome.platform.webAuthentication.sessions.empty());
}

TEST_CASE("a sign-in whose controller is gone still stores the credentials") {
    Welcome welcome;
    welcome.tap();
    welcome.controller.reset();
    welcome.signInEnds("token=t&user_id=u");
    CHECK(welcome.platform.keychain.stored("cadoraToken") == "t");
    CHECK(welcome.signInsComplete == 0);
    CHECK(welcome.window->labelUpdates.size() == 1);
}

TEST_CASE("a sign-in that fails when its controller is gone is only logged") {
    Welcome welcome;
    welcome.tap();
    welcome.controller.reset();
    welcome.signInFails();
    CHECK(welcome.platform.systemLog.lines.size() == 1);
    CHECK(welcome.window->labelUpdates.size() == 1);
}

TEST_CASE("a controller may be let go of by what is called at the sign-in") {
    Welcome welcome;
    welcome.controller->onSignInComplete = [&welcome] {
        welcome.controller.reset();
        ++welcome.signInsComplete;
    };
    welcome.tap();
    welcome.signInEnds("token=t&user_id=u");
    welcome.platform.clock.advance(confirmationTime);
    CHECK(welcome.signInsComplete == 1);
    CHECK(welcome.window->labelUpdates.size() == 1);
    CHECK(welcome.closings() == 0);
}

TEST_CASE("a controller that goes during the pause leaves the window as it is") {
    Welcome welcome;
    welcome.tap();
    welcome.signInEnds("token=t&user_id=u");
    welcome.controller.reset();
    welcome.platform.clock.advance(confirmationTime);
    CHECK(welcome.platform.clock.sleeperCount() == 0);
    CHECK(welcome.closings() == 0);
}

TEST_CASE("a program that ends during a sign-in or its pause leaves nothing behind") {
    {
        Welcome welcome;
        welcome.tap();
    }
    {
        Welcome welcome;
        welcome.tap();
        welcome.signInEnds("token=t&user_id=u");
        CHECK(welcome.platform.clock.sleeperCount() == 1);
    }
}

TEST_CASE("a sign-in in the welcome window that replaces another account is logged, and a first one is not") {
    Welcome welcome;
    welcome.tap();
    welcome.signInEnds("token=t&user_id=1");
    CHECK(welcome.platform.systemLog.lines.empty());
    welcome.tap();
    welcome.signInEnds("token=t&user_id=2");
    CHECK(welcome.platform.systemLog.lines ==
          std::vector<std::string>{"[Cadora Helper] the sign-in replaced the account that was signed in"});
}
