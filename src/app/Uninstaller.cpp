#include "app/Uninstaller.h"

#include "app/ServicesActivation.h"
#include "auth/AuthService.h"
#include "base/Error.h"
#include "platform/Platform.h"

#include <cstdlib>

namespace cadora {

namespace {

void removeData() {
    FileManager& fileManager = Platform::current().fileManager;
    const auto applicationSupport = fileManager.applicationSupportDirectory();
    if (!applicationSupport) {
        std::abort();
    }
    try {
        fileManager.removeItem(*applicationSupport / "Cadora");
    } catch (const PlatformError&) { // NOLINT(bugprone-empty-catch): the program goes all the same
    }
}

} // namespace

void Uninstaller::run() {
    const Platform& platform = Platform::current();
    AuthService::shared().signOut();
    removeData();
    ServicesActivation::remove();
    const std::filesystem::path bundle = platform.application.bundlePath();
    unregisterLaunchServices(bundle);
    platform.workspace.recycle(
        bundle, [&platform] { platform.mainActor.post([&platform] { platform.application.terminate(); }); });
}

void Uninstaller::unregisterLaunchServices(const std::filesystem::path& bundle) {
    const Platform& platform = Platform::current();
    const std::filesystem::path tool = platform.application.registrationToolPath();
    if (platform.processLauncher.isExecutableFile(tool)) {
        platform.processLauncher.run(tool, {"-u", bundle.string()});
    }
}

} // namespace cadora
