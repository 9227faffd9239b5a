#pragma once

#include "app/MenuBarController.h"
#include "app/ServiceProvider.h"
#include "app/WelcomeWindowController.h"
#include "upload/UploadQueue.h"

#include <memory>

namespace cadora {

// Brings the program up and answers the desktop. A host's main makes one, once the platform is installed, and
// keeps it for the life of the process. Main actor only.
class AppDelegate {
public:
    explicit AppDelegate(UploadQueue& queue = UploadQueue::shared());

    // The event loop runs: takes send requests, shows the menu, asks for permission to notify, sends what an
    // earlier run left in the outbox, and welcomes a user who is not signed in.
    void applicationDidFinishLaunching();

    // Where the outcome of each send request goes; see ServiceProvider::onStaged.
    void setStagedHandler(ServiceProvider::StagedHandler handler);

    // The user opened the program while it runs: the way back to an icon that was hidden. True: the host does
    // whatever else it does by itself, whether or not a window is to be seen.
    bool applicationShouldHandleReopen(bool hasVisibleWindows);

private:
    void showWelcomeWindow();
    void showWelcomeWindowUnlessSignedIn();

    UploadQueue& queue_;
    std::shared_ptr<MenuBarController> menuBar_;
    ServiceProvider serviceProvider_;
    WelcomeWindowController welcome_;
};

} // namespace cadora
