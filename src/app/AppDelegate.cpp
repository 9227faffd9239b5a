#include "app/AppDelegate.h"

#include "app/Notifier.h"
#include "platform/Platform.h"

namespace cadora {

void AppDelegate::applicationDidFinishLaunching() {
    Application& application = Platform::current().application;
    application.setServicesProvider(serviceProvider_);
    application.updateDynamicServices();
    Notifier::shared().requestAuthorization();
    queue_.kick();
}

} // namespace cadora
