#pragma once

#include "hosts/macos/AppKitAlerts.h"
#include "platform/Application.h"

#import <AppKit/AppKit.h>

@class CadoraServicesProvider;

namespace cadora {

// The shared NSApplication.
class AppKitApplication : public Application {
public:
    explicit AppKitApplication(MainActor& mainActor);

    void setActivationPolicy(ActivationPolicy policy) override;
    void setServicesProvider(ServicesProvider& provider) override;
    void updateDynamicServices() override;
    void activateIgnoringOtherApps() override;
    CancelAction runModal(Alert alert, Completion<int> completion) override;
    std::unique_ptr<StatusItem> makeStatusItem() override;
    std::shared_ptr<Window> makeWindow(const WindowDescription& description,
                                       WindowDelegate* delegate) override;
    std::vector<std::shared_ptr<Window>> windows() override;
    std::filesystem::path bundlePath() override;
    std::filesystem::path registrationToolPath() override;
    void terminate() override;

private:
    NSApplication* application_;
    AppKitAlerts alerts_;
    CadoraServicesProvider* servicesProvider_ = nil;
};

} // namespace cadora
