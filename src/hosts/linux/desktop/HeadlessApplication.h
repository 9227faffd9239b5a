#pragma once

#include "hosts/linux/bus/DBusApplication.h"
#include "hosts/linux/file-managers/FileManagerEntries.h"
#include "platform/Application.h"
#include "platform/WebAuthentication.h"

#include <filesystem>

namespace cadora {

// The program where no display is: files are sent as ever, and there is nothing to show them on. Status items
// and windows exist and are not seen, an alert is closed as if its last button had been pressed, since nobody
// could have agreed to anything, and no sign-in can be presented.
class HeadlessApplication : public Application {
public:
    // `services` and `entries` must outlive the application.
    HeadlessApplication(DBusApplication& services, FileManagerEntries& entries, std::filesystem::path bundle);

    void setActivationPolicy(ActivationPolicy) override {}
    void setServicesProvider(ServicesProvider& provider) override { services_.setServicesProvider(provider); }
    void updateDynamicServices() override { entries_.refresh(); }
    void activateIgnoringOtherApps() override {}
    CancelAction runModal(Alert alert, Completion<int> completion) override;
    std::unique_ptr<StatusItem> makeStatusItem() override;
    std::shared_ptr<Window> makeWindow(const WindowDescription& description,
                                       WindowDelegate* delegate) override;
    std::vector<std::shared_ptr<Window>> windows() override { return {}; }
    std::filesystem::path bundlePath() override { return bundle_; }
    std::filesystem::path registrationToolPath() override { return bundle_ / "bin" / "cadora-register"; }
    void terminate() override;

private:
    DBusApplication& services_;
    FileManagerEntries& entries_;
    std::filesystem::path bundle_;
};

class HeadlessWebAuthentication : public WebAuthentication {
public:
    std::shared_ptr<WebAuthenticationSession>
    makeSession(const URL& url, const std::string& callbackURLScheme, CompletionHandler handler) override;
};

} // namespace cadora
