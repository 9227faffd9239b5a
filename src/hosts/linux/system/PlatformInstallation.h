#pragma once

#include "hosts/linux/system/QtMainActor.h"
#include "hosts/linux/system/ThreadBackgroundExecutor.h"
#include "platform/Platform.h"

namespace cadora {

// The platform, installed for as long as this lives. It goes only when nothing uses it any more: the tasks
// end, which calls off what they wait for, and then the background's jobs, one of which may still ask the
// keyring.
class PlatformInstallation {
public:
    PlatformInstallation(const Platform& platform, QtMainActor& mainActor,
                         ThreadBackgroundExecutor& background)
        : mainActor_(mainActor), background_(background) {
        Platform::install(&platform);
    }
    PlatformInstallation(const PlatformInstallation&) = delete;
    PlatformInstallation& operator=(const PlatformInstallation&) = delete;
    ~PlatformInstallation() {
        mainActor_.endTasks();
        background_.end();
        Platform::install(nullptr);
    }

private:
    QtMainActor& mainActor_;
    ThreadBackgroundExecutor& background_;
};

} // namespace cadora
