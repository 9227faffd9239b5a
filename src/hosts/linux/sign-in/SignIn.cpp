#include "hosts/linux/sign-in/SignIn.h"

#include "hosts/linux/desktop/Desktop.h"
#include "hosts/linux/desktop/HeadlessApplication.h"
#include "hosts/linux/sign-in/BrowserWebAuthentication.h"

#include <QDBusConnection>

namespace cadora {

SignInParts::SignInParts(const std::filesystem::path& helper)
    : keyring(QDBusConnection::sessionBus()), scheme(XDGFolders::ofUser(), helper),
      browser(QDBusConnection::sessionBus()) {}

std::unique_ptr<WebAuthentication> makeWebAuthentication(MainActor& mainActor, BackgroundExecutor& background,
                                                         Clock& clock, DBusApplication& services,
                                                         SignInParts& parts) {
    if (!canShowWindows()) {
        return std::make_unique<HeadlessWebAuthentication>();
    }
    return std::make_unique<BrowserWebAuthentication>(mainActor, background, services, parts.keyring,
                                                      parts.scheme, parts.browser, clock);
}

} // namespace cadora
