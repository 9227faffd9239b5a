#include "app/MenuBarController.h"

#include "app/Site.h"
#include "base/Deployment.h"
#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <algorithm>

using namespace cadora;
using test::TestPlatform;

namespace {

using Steps = std::vector<std::string>;

const MenuItem separator = MenuSeparator{};

MenuItem information(const std::string& title) {
    return MenuInformation{title};
}

MenuItem command(const std::string& title, MenuAction action, CheckMark checkMark = CheckMark::off,
                 const std::string& keyEquivalent = "") {
    return MenuCommand{title, action, checkMark, keyEquivalent};
}

const MenuItem signInCommand = command("Sign in to Cadora…", MenuAction::signIn);
const MenuItem syncCommand = command("Sync Manually", MenuAction::syncNow);

MenuItem visibilityItem(const std::string& title, CheckMark onPrivate, CheckMark onLive) {
    return MenuSubmenu{title,
                       {command("Private", MenuAction::setVisibilityPrivate, onPrivate),
                        command("Live (for fans)", MenuAction::setVisibilityLive, onLive)}};
}

const MenuItem visibilityIsPrivate = visibilityItem("Visibility: Private", CheckMark::on, CheckMark::off);
const MenuItem visibilityIsLive = visibilityItem("Visibility: Live", CheckMark::off, CheckMark::on);

MenuItem settings(const MenuItem& visibility, CheckMark showsIcon) {
    return MenuSubmenu{"Settings",
                       {visibility, separator,
                        command("Show Cadora Helper in top menu", MenuAction::toggleMenuBarIcon, showsIcon),
                        separator, command("Uninstall Cadora Helper…", MenuAction::uninstall)}};
}

const MenuItem usualSettings = settings(visibilityIsPrivate, CheckMark::on);

Menu howTo() {
    return {separator,
            information("How to use:"),
            information("Finder: right-click audio → Services → Send to Cadora"),
            information("Logic Pro: Bounce (⌘B) → Bounce, then right-click"),
            information("    the bounced file → Services → Send to Cadora"),
            information("Works with: WAV · AIFF · MP3 · M4A · AAC · CAF · AU · FLAC")};
}

Menu operator+(Menu first, const Menu& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

const Menu quitAndHowTo =
    Menu{command("Quit Cadora Helper", MenuAction::quit, CheckMark::off, "q")} + howTo();

struct Desk {
    Desk() {
        auto pbs = std::make_unique<test::FakeUserDefaults>();
        pbs->trace = platform.trace;
        platform.userDefaults.suites["pbs"] = std::move(pbs);
    }

    void signIn(const std::optional<std::string>& email = "someone@example.org") {
        platform.keychain.store("cadoraToken", "t");
        if (email) {
            platform.keychain.store("appleEmail", *email);
        }
    }

    OutboxItem put(const std::string& name, OutboxState state) {
        OutboxItem item = store.stage(platform.home.file(name, "x"), "private");
        item.state = state;
        store.upsert(item);
        return item;
    }

    // Starts to sign in from the menu, up to the open page.
    test::FakeWebAuthenticationSession& openSignIn() {
        controller->perform(MenuAction::signIn);
        platform.mainActor.runUntilIdle();
        return *platform.webAuthentication.sessions.at(0);
    }

    void answerAlert(int button) {
        platform.application.answerAlert(button);
        platform.mainActor.runUntilIdle();
    }

    // How often the status item has been given a menu.
    int menusShown() const {
        const Steps steps = platform.trace.steps();
        return static_cast<int>(std::count(steps.begin(), steps.end(), "setMenu"));
    }

    // The menu from its start to before the settings.
    Menu upperPart() const {
        const Menu& menu = controller->menu();
        const auto settingsItem = std::find_if(menu.begin(), menu.end(), [](const MenuItem& item) {
            return std::holds_alternative<MenuSubmenu>(item);
        });
        return {menu.begin(), settingsItem};
    }

    MenuItem settingsItem() const {
        const Menu& menu = controller->menu();
        return *std::find_if(menu.begin(), menu.end(),
                             [](const MenuItem& item) { return std::holds_alternative<MenuSubmenu>(item); });
    }

    test::FakeStatusItem& statusItem() { return *platform.application.statusItem; }
    test::FakeWindow& signInWindow() { return *platform.application.madeWindows.at(0); }

    TestPlatform platform;
    OutboxStore store;
    UploadQueue queue{store};
    std::shared_ptr<MenuBarController> controller = std::make_shared<MenuBarController>(queue);
};

Alert noAccountAlert() {
    return {"No Cadora account found",
            "That Apple ID isn’t linked to a Cadora account yet. Cadora Helper can’t create one — first make "
            "your account in the Cadora app at " +
                Site::domainName() + ", then sign in here.",
            {"Open " + Site::domainName(), "OK"}};
}

const Alert uninstallAlert{"Uninstall Cadora Helper?",
                           "This signs you out, removes the “Send to Cadora” menu item, deletes any pending "
                           "uploads, and moves Cadora "
                           "Helper to the Trash. Posts already sent are unaffected.",
                           {"Uninstall", "Cancel"},
                           Alert::Style::warning};

const Alert iconHiddenAlert{
    "Cadora Helper icon hidden",
    "Cadora Helper keeps running in the background — “Send to Cadora” still works and you’ll still get a "
    "notification on each upload. To show the icon again, open Cadora Helper from your Applications folder."};

} // namespace

TEST_CASE("the controller makes the status item and shows no menu before it is installed") {
    Desk desk;
    CHECK(desk.platform.application.calls == Steps{"makeStatusItem"});
    CHECK(&desk.controller->statusItem() == &desk.statusItem());
    desk.controller->rebuild();
    CHECK_FALSE(desk.controller->menu().empty());
    CHECK_FALSE(desk.statusItem().menu);
}

TEST_CASE("installing gives the status item its symbol, its description, its tip and its menu") {
    Desk desk;
    desk.controller->install();
    CHECK(desk.statusItem().symbolName == "antenna.radiowaves.left.and.right");
    CHECK(desk.statusItem().accessibilityDescription == "Cadora Helper");
    CHECK(desk.statusItem().toolTip == "Cadora Helper");
    CHECK(desk.statusItem().visibility == Visibility::visible);
    CHECK(desk.statusItem().target == desk.controller.get());
    CHECK(desk.statusItem().menu == desk.controller->menu());
    CHECK(desk.platform.trace.steps() ==
          Steps{"makeStatusItem", "setButton", "setMenu", "show status item", "setMenu"});
}

TEST_CASE("an icon that the user hid stays hidden at the next start") {
    Desk desk;
    desk.platform.userDefaults.values.emplace("hideMenuBarIcon", true);
    desk.controller->install();
    CHECK(desk.statusItem().visibility == Visibility::hidden);
    CHECK(desk.settingsItem() == settings(visibilityIsPrivate, CheckMark::off));
}

TEST_CASE("the menu of somebody who is not signed in and has sent nothing") {
    Desk desk;
    desk.controller->install();
    const Menu expected =
        Menu{signInCommand, separator, information("No uploads"), separator, usualSettings} + quitAndHowTo;
    CHECK(desk.controller->menu() == expected);
}

TEST_CASE("the menu of somebody who is signed in and has sent files") {
    Desk desk;
    desk.signIn();
    desk.put("b.wav", OutboxState::staged);
    desk.put("a.wav", OutboxState::failed);
    desk.controller->install();
    const Menu expected = Menu{information("Signed in: someone@example.org"),
                               separator,
                               information("b.wav — staged"),
                               information("a.wav — failed"),
                               syncCommand,
                               separator,
                               usualSettings,
                               command("Sign Out", MenuAction::signOut)} +
                          quitAndHowTo;
    CHECK(desk.controller->menu() == expected);
}

TEST_CASE("signed in without an e-mail, the first line names Cadora") {
    Desk desk;
    desk.signIn(std::nullopt);
    desk.controller->rebuild();
    CHECK(desk.controller->menu().at(0) == information("Signed in: Cadora"));
}

TEST_CASE("an e-mail without a token is nobody signed in") {
    Desk desk;
    desk.platform.keychain.store("appleEmail", "someone@example.org");
    desk.controller->rebuild();
    CHECK(desk.controller->menu().at(0) == signInCommand);
}

TEST_CASE("every state of an item is shown by its name, in the order of the outbox") {
    Desk desk;
    desk.put("1", OutboxState::deferredAuth);
    desk.put("2", OutboxState::failed);
    desk.put("3", OutboxState::synced);
    desk.put("4", OutboxState::uploaded);
    desk.put("5", OutboxState::transcoded);
    desk.put("6", OutboxState::staged);
    desk.controller->rebuild();
    CHECK(desk.upperPart() == Menu{signInCommand, separator, information("1 — deferredAuth"),
                                   information("2 — failed"), information("3 — synced"),
                                   information("4 — uploaded"), information("5 — transcoded"),
                                   information("6 — staged"), syncCommand, separator});
}

TEST_CASE("synced items alone are listed and offer nothing to sync") {
    Desk desk;
    desk.put("a.wav", OutboxState::synced);
    desk.put("b.wav", OutboxState::synced);
    desk.controller->rebuild();
    CHECK(desk.upperPart() == Menu{signInCommand, separator, information("a.wav — synced"),
                                   information("b.wav — synced"), separator});
}

TEST_CASE("one item that waits for a sign-in among staged ones offers to sync") {
    Desk desk;
    desk.put("a.wav", OutboxState::staged);
    desk.put("b.wav", OutboxState::deferredAuth);
    desk.put("c.wav", OutboxState::staged);
    desk.controller->rebuild();
    CHECK(desk.upperPart() == Menu{signInCommand, separator, information("a.wav — staged"),
                                   information("b.wav — deferredAuth"), information("c.wav — staged"),
                                   syncCommand, separator});
}

TEST_CASE("a visibility that is absent or unknown reads as private") {
    Desk desk;
    desk.controller->rebuild();
    CHECK(desk.settingsItem() == usualSettings);
    for (const PropertyValue& unknown :
         {PropertyValue("public"), PropertyValue("Subscribers"), PropertyValue(true)}) {
        desk.platform.userDefaults.set("defaultVisibility", unknown);
        desk.controller->rebuild();
        CHECK(desk.settingsItem() == usualSettings);
    }
}

TEST_CASE("a change of the outbox rebuilds the menu, and replaces what was called before") {
    Desk desk;
    bool isEarlierCallbackCalled = false;
    desk.queue.onChange = [&] { isEarlierCallbackCalled = true; };
    desk.controller->install();
    desk.put("a.wav", OutboxState::uploaded);
    CHECK(desk.upperPart() == Menu{signInCommand, separator, information("No uploads"), separator});
    desk.queue.onChange();
    CHECK(desk.upperPart() == Menu{signInCommand, separator, information("a.wav — uploaded"), separator});
    CHECK(desk.statusItem().menu == desk.controller->menu());
    CHECK_FALSE(isEarlierCallbackCalled);
}

TEST_CASE("the queue doesn't keep the controller alive") {
    Desk desk;
    desk.controller->install();
    const std::weak_ptr<MenuBarController> watch = desk.controller;
    desk.controller.reset();
    CHECK(watch.expired());
    const int menus = desk.menusShown();
    desk.queue.onChange();
    CHECK(desk.menusShown() == menus);
}

TEST_CASE("choosing a visibility stores it for new files and shows it") {
    Desk desk;
    desk.controller->install();
    desk.statusItem().target->perform(MenuAction::setVisibilityLive);
    CHECK(desk.platform.userDefaults.string("defaultVisibility") == "subscribers");
    CHECK(desk.settingsItem() == settings(visibilityIsLive, CheckMark::on));
    CHECK(desk.statusItem().menu == desk.controller->menu());

    desk.statusItem().target->perform(MenuAction::setVisibilityPrivate);
    CHECK(desk.platform.userDefaults.string("defaultVisibility") == "private");
    CHECK(desk.settingsItem() == usualSettings);
    CHECK(desk.statusItem().menu == desk.controller->menu());
}

TEST_CASE("files in the outbox keep the visibility that they were sent with") {
    Desk desk;
    desk.put("a.wav", OutboxState::staged);
    desk.controller->perform(MenuAction::setVisibilityLive);
    CHECK(desk.store.load().at(0).visibility == "private");
}

TEST_CASE("syncing makes failed and waiting items ready again, and the queue's change refreshes the menu") {
    Desk desk;
    desk.put("a.wav", OutboxState::failed);
    desk.put("b.wav", OutboxState::deferredAuth);
    desk.controller->install();
    desk.controller->perform(MenuAction::syncNow);
    CHECK(desk.upperPart() == Menu{signInCommand, separator, information("a.wav — staged"),
                                   information("b.wav — staged"), separator});
    CHECK(desk.statusItem().menu == desk.controller->menu());
    // The pass that was started finds nobody signed in.
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.store.load().at(0).state == OutboxState::deferredAuth);
}

TEST_CASE("signing out forgets the credentials and shows it") {
    Desk desk;
    desk.signIn();
    desk.controller->install();
    desk.controller->perform(MenuAction::signOut);
    CHECK(desk.platform.keychain.items.empty());
    CHECK(desk.upperPart() == Menu{signInCommand, separator, information("No uploads"), separator});
    CHECK(desk.statusItem().menu == desk.controller->menu());
}

TEST_CASE("hiding the icon explains how to get it back, and the check mark waits for the next rebuild") {
    Desk desk;
    desk.controller->install();
    desk.platform.trace.clear();
    desk.controller->perform(MenuAction::toggleMenuBarIcon);
    CHECK(desk.platform.trace.steps() ==
          Steps{"set hideMenuBarIcon", "hide status item", "activateIgnoringOtherApps", "runModal"});
    CHECK(desk.platform.userDefaults.object("hideMenuBarIcon") == PropertyValue(true));
    CHECK(desk.statusItem().visibility == Visibility::hidden);
    CHECK(desk.platform.application.alerts == std::vector<Alert>{iconHiddenAlert});

    desk.answerAlert(Alert::firstButtonReturn);
    CHECK(desk.settingsItem() == usualSettings);
    desk.controller->rebuild();
    CHECK(desk.settingsItem() == settings(visibilityIsPrivate, CheckMark::off));
}

TEST_CASE("showing the icon again asks and says nothing") {
    Desk desk;
    desk.platform.userDefaults.values.emplace("hideMenuBarIcon", true);
    desk.controller->install();
    desk.platform.trace.clear();
    desk.controller->perform(MenuAction::toggleMenuBarIcon);
    CHECK(desk.platform.trace.steps() == Steps{"set hideMenuBarIcon", "show status item"});
    CHECK(desk.platform.userDefaults.object("hideMenuBarIcon") == PropertyValue(false));
    CHECK(desk.platform.application.alerts.empty());
}

TEST_CASE("uninstalling asks first, in front of everything") {
    Desk desk;
    desk.controller->install();
    desk.platform.trace.clear();
    desk.controller->perform(MenuAction::uninstall);
    CHECK(desk.platform.trace.steps() == Steps{"activateIgnoringOtherApps", "runModal"});
    CHECK(desk.platform.application.alerts == std::vector<Alert>{uninstallAlert});
}

TEST_CASE("cancelling the uninstallation leaves everything as it was") {
    Desk desk;
    desk.signIn();
    desk.put("a.wav", OutboxState::failed);
    desk.controller->install();
    desk.controller->perform(MenuAction::uninstall);
    const Menu menu = desk.controller->menu();
    desk.platform.trace.clear();
    desk.answerAlert(Alert::firstButtonReturn + 1);
    CHECK(desk.platform.trace.steps().empty());
    CHECK(desk.platform.keychain.items.size() == 2);
    CHECK(desk.store.load().size() == 1);
    CHECK(desk.controller->menu() == menu);
}

TEST_CASE("an alert that could not be shown uninstalls nothing") {
    Desk desk;
    desk.signIn();
    desk.controller->perform(MenuAction::uninstall);
    desk.platform.application.answerAlert(failure<int>(CancellationError()));
    CHECK(desk.platform.keychain.items.size() == 2);
    CHECK(desk.platform.workspace.recycledItems.empty());
}

TEST_CASE("agreeing to the uninstallation uninstalls") {
    Desk desk;
    desk.signIn();
    desk.controller->perform(MenuAction::uninstall);
    desk.answerAlert(Alert::firstButtonReturn);
    CHECK(desk.platform.keychain.items.empty());
    CHECK_FALSE(std::filesystem::exists(desk.store.root()));
    CHECK(desk.platform.workspace.recycledItems ==
          std::vector<std::filesystem::path>{desk.platform.application.bundle});
}

TEST_CASE("quitting ends the program") {
    Desk desk;
    desk.controller->perform(MenuAction::quit);
    CHECK(desk.platform.application.calls.back() == "terminate");
}

TEST_CASE("signing in opens an empty window in front, and the page over it") {
    Desk desk;
    desk.controller->install();
    desk.platform.trace.clear();
    desk.controller->perform(MenuAction::signIn);
    CHECK(desk.platform.application.madeWindows.empty());
    desk.platform.mainActor.runTurn();
    CHECK(desk.platform.trace.steps() ==
          Steps{"post", "makeWindow", "center", "makeKeyAndOrderFront", "activateIgnoringOtherApps"});
    const WindowDescription& description = desk.signInWindow().description;
    CHECK(description.contentWidth == 360);
    CHECK(description.contentHeight == 120);
    CHECK(description.title == "Sign in to Cadora");
    CHECK_FALSE(desk.signInWindow().content);
    CHECK(desk.signInWindow().isShown);

    auto& session = *desk.platform.webAuthentication.sessions.at(0);
    REQUIRE(session.provider != nullptr);
    CHECK(session.provider->presentationAnchor() == desk.platform.application.madeWindows.at(0));
}

TEST_CASE("a completed sign-in shows it, sends again what had to wait, and puts the window away") {
    Desk desk;
    desk.put("a.wav", OutboxState::deferredAuth);
    desk.controller->install();
    auto& session = desk.openSignIn();
    const int menus = desk.menusShown();
    session.handler(URL::constant("cadora://auth?token=t&user_id=u&email=someone%40example.org"), nullptr);
    while (desk.signInWindow().isShown && desk.platform.mainActor.runTurn()) {
    }
    CHECK(desk.upperPart() == Menu{information("Signed in: someone@example.org"), separator,
                                   information("a.wav — staged"), separator});
    CHECK(desk.statusItem().menu == desk.controller->menu());
    // By itself, and for the queue's change.
    CHECK(desk.menusShown() == menus + 2);
    CHECK(desk.signInWindow().calls == Steps{"center", "makeKeyAndOrderFront", "orderOut"});
    CHECK(desk.platform.application.alerts.empty());
    desk.platform.mediaFramework.holdsExports = true;
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.queue.isDraining());
}

TEST_CASE("a sign-in that the user gave up is logged, and the window goes without a word") {
    Desk desk;
    desk.put("a.wav", OutboxState::deferredAuth);
    desk.controller->install();
    auto& session = desk.openSignIn();
    const int menus = desk.menusShown();
    session.handler(std::nullopt, std::make_exception_ptr(PlatformError(
                                      WebAuthenticationSession::errorDomain,
                                      WebAuthenticationSession::canceledLogin, "the sign-in was given up")));
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.platform.systemLog.lines == Steps{"[Cadora Helper] sign-in failed: the sign-in was given up"});
    CHECK_FALSE(desk.signInWindow().isShown);
    CHECK(desk.platform.application.alerts.empty());
    CHECK(desk.menusShown() == menus);
    CHECK(desk.store.load().at(0).state == OutboxState::deferredAuth);
}

TEST_CASE("a sign-in that can't be presented is logged") {
    Desk desk;
    desk.platform.webAuthentication.sessionsStart = false;
    desk.controller->install();
    desk.openSignIn();
    CHECK(desk.platform.systemLog.lines == Steps{"[Cadora Helper] sign-in failed: badResponse"});
    CHECK_FALSE(desk.signInWindow().isShown);
    CHECK(desk.platform.application.alerts.empty());
}

TEST_CASE("an Apple ID without an account gets an alert, and the window goes after it") {
    Desk desk;
    desk.controller->install();
    auto& session = desk.openSignIn();
    desk.platform.trace.clear();
    session.handler(URL::constant("cadora://auth?error=no_account"), nullptr);
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.platform.application.alerts == std::vector<Alert>{noAccountAlert()});
    CHECK(desk.signInWindow().isShown);
    CHECK(desk.platform.systemLog.lines.empty());

    SUBCASE("the first button opens the site") {
        desk.answerAlert(Alert::firstButtonReturn);
        CHECK(desk.platform.workspace.openedURLs == Steps{deployment::siteOrigin()});
        const Steps steps = desk.platform.trace.steps();
        CHECK(Steps(steps.end() - 4, steps.end()) == Steps{"activateIgnoringOtherApps", "runModal",
                                                           "openURL " + deployment::siteOrigin(),
                                                           "orderOut"});
    }
    SUBCASE("the second only closes the alert") {
        desk.answerAlert(Alert::firstButtonReturn + 1);
        CHECK(desk.platform.workspace.openedURLs.empty());
    }
    CHECK_FALSE(desk.signInWindow().isShown);
    CHECK(desk.menusShown() == 0);
}

TEST_CASE("a sign-in that is under way holds the controller until it ends") {
    Desk desk;
    desk.controller->install();
    auto& session = desk.openSignIn();
    const std::weak_ptr<MenuBarController> watch = desk.controller;
    desk.controller.reset();
    CHECK_FALSE(watch.expired());
    session.handler(URL::constant("cadora://auth?token=t&user_id=u"), nullptr);
    while (desk.signInWindow().isShown && desk.platform.mainActor.runTurn()) {
    }
    CHECK_FALSE(desk.signInWindow().isShown);
    CHECK(watch.expired());
}

TEST_CASE("a sign-in that puts another account in place of one that is signed in is logged, naming neither") {
    Desk desk;
    desk.controller->install();
    desk.platform.keychain.store("cadoraToken", "old");
    desk.platform.keychain.store("cadoraUserId", "1");
    auto& session = desk.openSignIn();
    SUBCASE("another") {
        session.handler(URL::constant("cadora://auth?token=t&user_id=2"), nullptr);
        desk.platform.mainActor.runUntilIdle();
        CHECK(desk.platform.systemLog.lines ==
              Steps{"[Cadora Helper] the sign-in replaced the account that was signed in"});
    }
    SUBCASE("the same again") {
        session.handler(URL::constant("cadora://auth?token=t&user_id=1"), nullptr);
        desk.platform.mainActor.runUntilIdle();
        CHECK(desk.platform.systemLog.lines.empty());
    }
}
