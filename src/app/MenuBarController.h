#pragma once

#include "base/Task.h"
#include "platform/Menu.h"
#include "platform/StatusItem.h"
#include "upload/UploadQueue.h"

#include <memory>

namespace cadora {

// The status item and the menu under it: who is signed in, what becomes of the sent files, the settings, and
// a short how-to. The menu is built afresh whenever something that it shows may have changed. Held by a
// std::shared_ptr, since what it starts outlasts a turn. Main actor only.
class MenuBarController : public MenuTarget, public std::enable_shared_from_this<MenuBarController> {
public:
    // A Boolean of the user defaults: true hides the status item.
    static constexpr const char* hideMenuBarIconKey = "hideMenuBarIcon";

    // Makes the status item, which has no menu yet. The queue must outlive the controller.
    explicit MenuBarController(UploadQueue& queue = UploadQueue::shared());

    // Gives the status item its looks and its menu, and rebuilds the menu at each change of the outbox from
    // now on; replaces the queue's callback.
    void install();

    // Reads the keychain, the outbox and the user defaults anew, and shows the menu that follows unless it is
    // shown already.
    void rebuild();

    StatusItem& statusItem() { return *statusItem_; }
    const Menu& menu() const { return menu_; }

    void perform(MenuAction action) override;

private:
    enum class Attachment { pending, attached };

    // What the menu follows from.
    struct Content {
        std::optional<std::string> account; // as it is shown; absent when signed out
        OutboxSnapshot items;
        bool isIconHidden = false;
        bool isLive = false;

        bool isSameAs(const Content& other) const {
            return items.isSameAs(other.items) && account == other.account &&
                   isIconHidden == other.isIconHidden && isLive == other.isLive;
        }
    };

    Content readContent();
    static MenuItem settingsSubmenu(const Content& content);
    static MenuItem visibilitySubmenu(const Content& content);

    void signIn();
    void syncNow();
    void signOut();
    void setVisibilityPrivate();
    void setVisibilityLive();
    void toggleMenuBarIcon();
    static void uninstall();
    static void quit();

    static Task<void> runSignIn(std::shared_ptr<MenuBarController> controller);
    static Task<void> showNoAccountAlert();

    UploadQueue& queue_;
    std::unique_ptr<StatusItem> statusItem_;
    std::optional<Content> content_;
    Menu menu_;
    Attachment attachment_ = Attachment::pending;
};

} // namespace cadora
