#include "app/AppDelegate.h"
#include "base/Error.h"
#include "hosts/linux/bus/DBusApplication.h"
#include "hosts/linux/bus/DBusUserNotificationCenter.h"
#include "hosts/linux/bus/SingleInstance.h"
#include "hosts/linux/desktop/Desktop.h"
#include "hosts/linux/desktop/Display.h"
#include "hosts/linux/desktop/ShowInFront.h"
#include "hosts/linux/file-managers/FileManagerEntries.h"
#include "hosts/linux/files/FileUserDefaults.h"
#include "hosts/linux/files/GioWorkspace.h"
#include "hosts/linux/files/PosixFileManager.h"
#include "hosts/linux/files/ProgramFiles.h"
#include "hosts/linux/files/URIList.h"
#include "hosts/linux/files/XDGFolders.h"
#include "hosts/linux/keyring/LibsecretKeychain.h"
#include "hosts/linux/media/FfmpegMediaFramework.h"
#include "hosts/linux/network/CurlURLSession.h"
#include "hosts/linux/sign-in/SignIn.h"
#include "hosts/linux/system/GetentropyRandomSource.h"
#include "hosts/linux/system/PlatformInstallation.h"
#include "hosts/linux/system/PosixProcessLauncher.h"
#include "hosts/linux/system/Process.h"
#include "hosts/linux/system/QtClock.h"
#include "hosts/linux/system/QtMainActor.h"
#include "hosts/linux/system/StderrSystemLog.h"
#include "hosts/linux/system/ThreadBackgroundExecutor.h"
#include "platform/Platform.h"
#include "sharing/SharedPlatform.h"

#include <QCoreApplication>
#include <QDBusConnection>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <sysexits.h>

namespace cadora {

namespace {

void report(const std::string& problem) {
    StderrSystemLog().log("[Cadora Helper] " + problem);
}

// Empty where windows can be shown, or where nobody could expect any.
std::string whyNothingIsShown() {
    return canShowWindows() ? std::string() : whyDisplayIsAbsent();
}

// Runs the helper until the desktop ends. The name on the bus is ours already.
int serve(DBusApplication& services, StderrSystemLog& systemLog, const Start& start,
          const Activation& activation) {
    QtMainActor mainActor;
    QtClock clock;
    SignInParts signInParts(program_files::helper());
    ThreadBackgroundExecutor background;
    PosixFileManager fileManager;
    GetentropyRandomSource random;
    FileUserDefaults userDefaults(fileManager, program_files::defaults(), systemLog);
    LibsecretKeychain keychain;
    CurlURLSession urlSession(mainActor);
    FfmpegMediaFramework mediaFramework(mainActor, systemLog, program_files::exportWorker());
    DBusUserNotificationCenter notificationCenter(mainActor, QDBusConnection::sessionBus());
    FileManagerEntries entries(XDGFolders::ofUser(), program_files::sender(), userDefaults, systemLog);
    const Desktop desktop = makeDesktop(mainActor, services, entries, program_files::bundle());
    if (canShowWindows()) {
        keepActivation(activation);
    }
    const auto webAuthentication = makeWebAuthentication(mainActor, background, clock, services, signInParts);
    GioWorkspace workspace(background);
    PosixProcessLauncher processLauncher;
    const Platform platform{mainActor,
                            background,
                            clock,
                            fileManager,
                            random,
                            systemLog,
                            userDefaults,
                            keychain,
                            urlSession,
                            mediaFramework,
                            notificationCenter,
                            *desktop.application,
                            *webAuthentication,
                            workspace,
                            processLauncher};
    const SharedPlatform shared(platform);
    const PlatformInstallation installation(shared.platform(), mainActor, background);

    services.setBusLostHandler([] {
        report("the session bus is gone");
        QCoreApplication::exit(EX_UNAVAILABLE);
    });
    if (const std::string reason = whyNothingIsShown(); !reason.empty()) {
        report(reason);
        notificationCenter.add({"display", "Cadora Helper can’t show its windows", reason});
    }
    // Before the event loop: a request may have come with the name already, and the loop brings it in.
    AppDelegate delegate;
    delegate.setStagedHandler(
        [&services](const std::vector<std::string>& problems) { services.staged(problems); });
    services.setReopenHandler(
        [&] { desktop.reopen([&delegate] { delegate.applicationShouldHandleReopen(false); }); });
    desktop.application->setActivationPolicy(Application::ActivationPolicy::accessory);
    delegate.applicationDidFinishLaunching();
    if (!start.uris.empty()) {
        if (const std::string error = services.open(start.uris); !error.empty()) {
            report(error);
        }
    }
    if (start.isOpening()) {
        desktop.showFirst(activation);
    }
    const int status = QCoreApplication::exec();
    mainActor.endTasks();
    program_files::removeEmptyLibrary(desktop.application->bundlePath());
    return status;
}

// `--service` says that nobody opened the program; everything else is a file or a URL.
Start readStart(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    Start start;
    start.isForService = std::erase(arguments, "--service") > 0;
    std::error_code folderIsGone;
    start.uris = uriList(arguments, std::filesystem::current_path(folderIsGone));
    hideOwnURLs({argv + 1, argv + argc});
    start.hasDisplay = [] { return findDisplay() == Display::present; };
    return start;
}

int run(int argc, char** argv) {
    prepareProcess();
    const Start start = readStart(argc, argv);
    StderrSystemLog systemLog;
    if (const auto status = endByForwarding(start, systemLog)) {
        return *status;
    }
    const Activation activation = takeActivationOfStart();
    // The arguments are files, and none is meant for Qt.
    int argumentCount = 1;
    const auto qt = makeQtApplication(argumentCount, argv);
    DBusApplication services(QDBusConnection::sessionBus(), systemLog);
    if (const auto status = endUnlessClaimed(services, start, systemLog)) {
        return *status;
    }
    return serve(services, systemLog, start, activation);
}

} // namespace

} // namespace cadora

int main(int argc, char** argv) {
    try {
        return cadora::run(argc, argv);
    } catch (...) {
        cadora::report(cadora::errorText(std::current_exception()));
        return EXIT_FAILURE;
    }
}
