#include "app/AppDelegate.h"

#include "app/Notifier.h"
#include "app/ServicesActivation.h"
#include "auth/KeychainStore.h"
#include "platform/Platform.h"

#include <utility>

namespace cadora {

AppDelegate::AppDelegate(UploadQueue& queue)
    : queue_(queue), menuBar_(std::make_shared<MenuBarController>(queue)), serviceProvider_(queue) {}

void AppDelegate::applicationDidFinishLaunching() {
    Application& application = Platform::current().application;
    application.setServicesProvider(serviceProvider_);
    application.updateDynamicServices();
    ServicesActivation::enableIfNeeded();
    menuBar_->install();
    Notifier::shared().requestAuthorization();
    welcome_.onSignInComplete = [menuBar = menuBar_, &queue = queue_] {
        menuBar->rebuild();
        queue.kick();
    };
    queue_.kick();
    showWelcomeWindowUnlessSignedIn();
}

void AppDelegate::setStagedHandler(ServiceProvider::StagedHandler handler) {
    serviceProvider_.onStaged = std::move(handler);
}

bool AppDelegate::applicationShouldHandleReopen(bool /*hasVisibleWindows*/) {
    Platform::current().userDefaults.set(MenuBarController::hideMenuBarIconKey, PropertyValue(false));
    menuBar_->statusItem().setVisibility(Visibility::visible);
    showWelcomeWindowUnlessSignedIn();
    return true;
}

void AppDelegate::showWelcomeWindowUnlessSignedIn() {
    if (!KeychainStore::get(KeychainStore::Key::cadoraToken)) {
        showWelcomeWindow();
    }
}

void AppDelegate::showWelcomeWindow() {
    Application& application = Platform::current().application;
    if (!welcome_.window) {
        welcome_.window = application.makeWindow({460, 520, "Cadora Helper"}, &welcome_);
        welcome_.window->center();
        welcome_.window->setContentView(welcome_.makeContent(), welcome_);
    }
    welcome_.window->makeKeyAndOrderFront();
    application.activateIgnoringOtherApps();
}

} // namespace cadora
