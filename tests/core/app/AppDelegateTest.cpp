#include "app/AppDelegate.h"

#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <functional>
#include <optional>

using namespace cadora;
using test::TestPlatform;

namespace {

using Steps = std::vector<std::string>;

struct Program {
    Program() {
        auto pbs = std::make_unique<test::FakeUserDefaults>();
        pbs->trace = platform.trace;
        platform.userDefaults.suites["pbs"] = std::move(pbs);
    }

    void launch() {
        delegate.emplace(queue);
        delegate->applicationDidFinishLaunching();
    }

    // The windows made so far.
    std::vector<std::shared_ptr<test::FakeWindow>>& windows() { return platform.application.madeWindows; }
    test::FakeStatusItem& statusItem() { return *platform.application.statusItem; }

    // What the menu tells first.
    MenuItem account() { return statusItem().menu->at(0); }

    Steps stepsOf(const std::function<void()>& action) {
        platform.trace.clear();
        action();
        return platform.trace.steps();
    }

    TestPlatform platform;
    OutboxStore store;
    UploadQueue queue{store};
    std::optional<AppDelegate> delegate;
};

const MenuItem signInCommand = MenuCommand{"Sign in to Cadora…", MenuAction::signIn};

} // namespace

TEST_CASE("the program starts step by step: send requests, the menus' switch, the status item, permission to "
          "notify, the outbox, and last the welcome") {
    Program program;
    program.launch();
    CHECK(program.platform.trace.steps() ==
          Steps{"makeStatusItem", "setServicesProvider", "updateDynamicServices", "set NSServicesStatus",
                "updateDynamicServices", "setButton", "setMenu", "show status item", "setMenu",
                "requestAuthorization", "post", "makeWindow", "center", "setContentView",
                "makeKeyAndOrderFront", "activateIgnoringOtherApps"});
    CHECK(program.platform.application.provider != nullptr);
}

TEST_CASE("the delegate makes the status item at once and nothing else") {
    Program program;
    program.delegate.emplace(program.queue);
    CHECK(program.platform.trace.steps() == Steps{"makeStatusItem"});
}

TEST_CASE("the welcome window is 460 by 520 points, titled, and filled") {
    Program program;
    program.launch();
    REQUIRE(program.windows().size() == 1);
    const test::FakeWindow& window = *program.windows()[0];
    CHECK(window.description.title == "Cadora Helper");
    CHECK(window.description.contentWidth == 460);
    CHECK(window.description.contentHeight == 520);
    CHECK(window.content);
    CHECK(window.target != nullptr);
    CHECK(window.delegate != nullptr);
    CHECK(window.isShown);
}

TEST_CASE("a start with a stored token shows no window, only the status item") {
    Program program;
    program.platform.keychain.store("cadoraToken", "t");
    program.launch();
    program.platform.mainActor.runUntilIdle();
    CHECK(program.windows().empty());
    CHECK(program.statusItem().visibility == Visibility::visible);
    CHECK(program.platform.application.activationPolicy == std::nullopt);
    const auto& calls = program.platform.application.calls;
    CHECK(std::count(calls.begin(), calls.end(), "activateIgnoringOtherApps") == 0);
}

TEST_CASE("with a hidden icon and nobody signed in, the welcome is shown, and the icon comes at a re-open") {
    Program program;
    program.platform.userDefaults.values.emplace("hideMenuBarIcon", true);
    program.launch();
    CHECK(program.windows().size() == 1);
    CHECK(program.windows().at(0)->isShown);
    CHECK(program.statusItem().visibility == Visibility::hidden);

    CHECK(program.delegate->applicationShouldHandleReopen(true));
    CHECK(program.statusItem().visibility == Visibility::visible);
    CHECK(program.platform.userDefaults.object("hideMenuBarIcon") == PropertyValue(false));
}

TEST_CASE("what an earlier run left in the outbox is sent after the start") {
    Program program;
    program.store.stage(program.platform.home.file("song.wav", "x"), "private");
    program.launch();
    CHECK(program.store.load().at(0).attempts == 0);
    program.platform.mainActor.runUntilIdle();
    CHECK(program.store.load().at(0).state == OutboxState::deferredAuth);
}

TEST_CASE("files sent by the desktop reach the outbox") {
    Program program;
    program.launch();
    std::string error;
    const URL file = URL::file(program.platform.home.file("song.wav", "x"));
    program.platform.application.provider->sendToCadora(test::FakePasteboard({file}), std::nullopt, error);
    program.platform.mainActor.runUntilIdle();
    CHECK(error.empty());
    CHECK(program.store.load().size() == 1);
}

TEST_CASE("a re-open while the welcome is open brings it to the front and makes no second one") {
    Program program;
    program.launch();
    for (const bool hasVisibleWindows : {true, false}) {
        const Steps steps = program.stepsOf(
            [&] { CHECK(program.delegate->applicationShouldHandleReopen(hasVisibleWindows)); });
        CHECK(steps == Steps{"set hideMenuBarIcon", "show status item", "makeKeyAndOrderFront",
                             "activateIgnoringOtherApps"});
    }
    CHECK(program.windows().size() == 1);
}

TEST_CASE("a re-open after the welcome was closed makes a fresh one") {
    Program program;
    program.launch();
    program.windows().at(0)->close();
    program.delegate->applicationShouldHandleReopen(false);
    REQUIRE(program.windows().size() == 2);
    CHECK(program.windows()[1]->isShown);
    CHECK(program.windows()[1]->content == program.windows()[0]->content);
}

TEST_CASE("a re-open by somebody who is signed in brings back the icon and nothing else") {
    Program program;
    program.platform.keychain.store("cadoraToken", "t");
    program.platform.userDefaults.values.emplace("hideMenuBarIcon", true);
    program.launch();
    const auto menu = program.statusItem().menu;
    for (const bool hasVisibleWindows : {true, false}) {
        const Steps steps = program.stepsOf(
            [&] { CHECK(program.delegate->applicationShouldHandleReopen(hasVisibleWindows)); });
        CHECK(steps == Steps{"set hideMenuBarIcon", "show status item"});
    }
    // Its check mark catches up at the next rebuild.
    CHECK(program.statusItem().menu == menu);
}

TEST_CASE("a sign-in in the welcome window refreshes the menu and starts the queue") {
    Program program;
    program.launch();
    program.platform.mainActor.runUntilIdle();
    program.store.stage(program.platform.home.file("song.wav", "x"), "private");
    REQUIRE(program.account() == signInCommand);
    REQUIRE_FALSE(program.queue.isDraining());

    program.platform.mediaFramework.holdsExports = true;
    program.windows().at(0)->target->perform(ViewAction::signInTapped);
    program.platform.mainActor.runUntilIdle();
    program.platform.webAuthentication.sessions.at(0)->handler(
        URL::constant("cadora://auth?token=t&user_id=u&email=someone%40example.org"), nullptr);
    program.platform.mainActor.runUntilIdle();
    CHECK(program.account() == MenuItem(MenuInformation{"Signed in: someone@example.org"}));
    CHECK(program.queue.isDraining());
}
