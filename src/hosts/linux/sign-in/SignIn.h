#pragma once

#include "hosts/linux/bus/DBusApplication.h"
#include "hosts/linux/keyring/SecretServiceUnlock.h"
#include "hosts/linux/sign-in/DesktopBrowser.h"
#include "hosts/linux/sign-in/GioURLSchemeOwnership.h"
#include "platform/BackgroundExecutor.h"
#include "platform/Clock.h"
#include "platform/WebAuthentication.h"

#include <filesystem>
#include <memory>

namespace cadora {

// What a sign-in needs of the desktop.
struct SignInParts {
    // `helper` is the program that the service's links should start.
    explicit SignInParts(const std::filesystem::path& helper);

    SecretServiceUnlock keyring;
    GioURLSchemeOwnership scheme;
    DesktopBrowser browser;
};

// The sign-in through the browser, or none where nothing can be shown. What is passed by reference must
// outlive it.
std::unique_ptr<WebAuthentication> makeWebAuthentication(MainActor& mainActor, BackgroundExecutor& background,
                                                         Clock& clock, DBusApplication& services,
                                                         SignInParts& parts);

} // namespace cadora
