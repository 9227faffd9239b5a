#include "app/MenuBarController.h"

#include "api/AuthError.h"
#include "app/Site.h"
#include "app/Uninstaller.h"
#include "auth/AccountChange.h"
#include "auth/AuthService.h"
#include "auth/KeychainStore.h"
#include "base/Error.h"
#include "outbox/VisibilityPreference.h"
#include "platform/Platform.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

namespace cadora {

namespace {

CheckMark checkMark(bool isOn) {
    return isOn ? CheckMark::on : CheckMark::off;
}

bool awaitsRetry(const OutboxItem& item) {
    return item.state == OutboxState::failed || item.state == OutboxState::deferredAuth;
}

bool isFirstButton(const Result<int>& answer) {
    const int* button = std::get_if<int>(&answer);
    return button && *button == Alert::firstButtonReturn;
}

void storeVisibility(const std::string& value) {
    Platform::current().userDefaults.set(VisibilityPreference::key, PropertyValue(value));
}

std::shared_ptr<Window> showSignInAnchor() {
    Application& application = Platform::current().application;
    auto window = application.makeWindow({360, 120, "Sign in to Cadora"}, nullptr);
    window->center();
    window->makeKeyAndOrderFront();
    application.activateIgnoringOtherApps();
    return window;
}

void appendAccount(Menu& menu, const std::optional<std::string>& account) {
    if (account) {
        menu.emplace_back(MenuInformation{"Signed in: " + *account});
    } else {
        menu.emplace_back(MenuCommand{"Sign in to Cadora…", MenuAction::signIn});
    }
}

void appendOutbox(Menu& menu, const std::vector<OutboxItem>& items) {
    if (items.empty()) {
        menu.emplace_back(MenuInformation{"No uploads"});
    }
    for (const OutboxItem& item : items) {
        menu.emplace_back(MenuInformation{item.sourceFilename + " — " + rawValue(item.state)});
    }
    if (std::any_of(items.begin(), items.end(), awaitsRetry)) {
        menu.emplace_back(MenuCommand{"Sync Manually", MenuAction::syncNow});
    }
}

void appendHowTo(Menu& menu) {
    for (const char* line : {"How to use:", "Finder: right-click audio → Services → Send to Cadora",
                             "Logic Pro: Bounce (⌘B) → Bounce, then right-click",
                             "    the bounced file → Services → Send to Cadora",
                             "Works with: WAV · AIFF · MP3 · M4A · AAC · CAF · AU · FLAC"}) {
        menu.emplace_back(MenuInformation{line});
    }
}

} // namespace

MenuBarController::MenuBarController(UploadQueue& queue)
    : queue_(queue), statusItem_(Platform::current().application.makeStatusItem()) {}

void MenuBarController::install() {
    statusItem_->setButton("antenna.radiowaves.left.and.right", "Cadora Helper", "Cadora Helper");
    statusItem_->setMenu(menu_, *this);
    attachment_ = Attachment::attached;
    const bool isHidden = Platform::current().userDefaults.boolean(hideMenuBarIconKey);
    statusItem_->setVisibility(isHidden ? Visibility::hidden : Visibility::visible);
    queue_.onChange = [weak = std::weak_ptr(shared_from_this())] {
        if (const auto controller = weak.lock()) {
            controller->rebuild();
        }
    };
    rebuild();
}

MenuBarController::Content MenuBarController::readContent() {
    Content content{std::nullopt, queue_.store().load(),
                    Platform::current().userDefaults.boolean(hideMenuBarIconKey),
                    VisibilityPreference::current() == VisibilityPreference::subscribersValue};
    if (KeychainStore::get(KeychainStore::Key::cadoraToken)) {
        content.account = KeychainStore::get(KeychainStore::Key::appleEmail).value_or("Cadora");
    }
    return content;
}

// Each pass over the outbox tells of each item, and most of them find the menu as it is.
void MenuBarController::rebuild() {
    Content content = readContent();
    if (content_ && content_->isSameAs(content)) {
        return;
    }
    content_ = std::move(content);
    menu_.clear();
    appendAccount(menu_, content_->account);
    menu_.emplace_back(MenuSeparator{});
    appendOutbox(menu_, content_->items.items());
    menu_.emplace_back(MenuSeparator{});
    menu_.push_back(settingsSubmenu(*content_));
    if (content_->account) {
        menu_.emplace_back(MenuCommand{"Sign Out", MenuAction::signOut});
    }
    menu_.emplace_back(MenuCommand{"Quit Cadora Helper", MenuAction::quit, CheckMark::off, "q"});
    menu_.emplace_back(MenuSeparator{});
    appendHowTo(menu_);
    if (attachment_ == Attachment::attached) {
        statusItem_->setMenu(menu_, *this);
    }
}

MenuItem MenuBarController::settingsSubmenu(const Content& content) {
    return MenuSubmenu{"Settings",
                       {visibilitySubmenu(content), MenuSeparator{},
                        MenuCommand{"Show Cadora Helper in top menu", MenuAction::toggleMenuBarIcon,
                                    checkMark(!content.isIconHidden)},
                        MenuSeparator{}, MenuCommand{"Uninstall Cadora Helper…", MenuAction::uninstall}}};
}

MenuItem MenuBarController::visibilitySubmenu(const Content& content) {
    const bool isLive = content.isLive;
    return MenuSubmenu{isLive ? "Visibility: Live" : "Visibility: Private",
                       {MenuCommand{"Private", MenuAction::setVisibilityPrivate, checkMark(!isLive)},
                        MenuCommand{"Live (for fans)", MenuAction::setVisibilityLive, checkMark(isLive)}}};
}

void MenuBarController::perform(MenuAction action) {
    switch (action) {
    case MenuAction::signIn:
        return signIn();
    case MenuAction::syncNow:
        return syncNow();
    case MenuAction::signOut:
        return signOut();
    case MenuAction::setVisibilityPrivate:
        return setVisibilityPrivate();
    case MenuAction::setVisibilityLive:
        return setVisibilityLive();
    case MenuAction::toggleMenuBarIcon:
        return toggleMenuBarIcon();
    case MenuAction::uninstall:
        return uninstall();
    case MenuAction::quit:
        return quit();
    }
}

void MenuBarController::signIn() {
    Platform::current().mainActor.start(runSignIn(shared_from_this()));
}

Task<void> MenuBarController::runSignIn(std::shared_ptr<MenuBarController> controller) {
    const std::shared_ptr<Window> window = showSignInAnchor();
    const AccountChange change;
    std::exception_ptr error;
    try {
        co_await AuthService::shared().signInWithApple(window);
    } catch (...) {
        error = std::current_exception();
    }
    if (!error) {
        change.report();
        controller->rebuild();
        controller->queue_.retryFailed();
    } else if (isNoAccount(error)) {
        co_await showNoAccountAlert();
    } else {
        Platform::current().systemLog.log("[Cadora Helper] sign-in failed: " + errorText(error));
    }
    window->orderOut();
}

Task<void> MenuBarController::showNoAccountAlert() {
    const Platform& platform = Platform::current();
    platform.application.activateIgnoringOtherApps();
    Alert alert{"No Cadora account found",
                "That Apple ID isn’t linked to a Cadora account yet. Cadora Helper can’t create one — first "
                "make your account in the Cadora app at " +
                    Site::domainName() + ", then sign in here.",
                {"Open " + Site::domainName(), "OK"}};
    OperationAwaiter<int> asking(platform.mainActor,
                                 [&platform, alert = std::move(alert)](Completion<int> completion) {
                                     return platform.application.runModal(alert, std::move(completion));
                                 });
    const int answer = co_await asking;
    if (answer == Alert::firstButtonReturn) {
        if (const auto url = Site::url()) {
            platform.workspace.openURL(*url);
        }
    }
}

void MenuBarController::syncNow() {
    queue_.retryFailed();
}

void MenuBarController::signOut() {
    AuthService::shared().signOut();
    rebuild();
}

void MenuBarController::setVisibilityPrivate() {
    storeVisibility(VisibilityPreference::privateValue);
    rebuild();
}

void MenuBarController::setVisibilityLive() {
    storeVisibility(VisibilityPreference::subscribersValue);
    rebuild();
}

void MenuBarController::toggleMenuBarIcon() {
    const Platform& platform = Platform::current();
    const bool wasHidden = platform.userDefaults.boolean(hideMenuBarIconKey);
    platform.userDefaults.set(hideMenuBarIconKey, PropertyValue(!wasHidden));
    statusItem_->setVisibility(wasHidden ? Visibility::visible : Visibility::hidden);
    if (wasHidden) {
        return;
    }
    platform.application.activateIgnoringOtherApps();
    platform.application.runModal(
        {"Cadora Helper icon hidden",
         "Cadora Helper keeps running in the background — “Send to Cadora” still works and you’ll still get "
         "a notification on each upload. To show the icon again, open Cadora Helper from your Applications "
         "folder."},
        [](const Result<int>&) {});
}

void MenuBarController::uninstall() {
    Application& application = Platform::current().application;
    application.activateIgnoringOtherApps();
    application.runModal({"Uninstall Cadora Helper?",
                          "This signs you out, removes the “Send to Cadora” menu item, deletes any pending "
                          "uploads, and moves Cadora Helper to the Trash. Posts already sent are unaffected.",
                          {"Uninstall", "Cancel"},
                          Alert::Style::warning},
                         [](const Result<int>& answer) {
                             if (isFirstButton(answer)) {
                                 Uninstaller::run();
                             }
                         });
}

void MenuBarController::quit() {
    Platform::current().application.terminate();
}

} // namespace cadora
