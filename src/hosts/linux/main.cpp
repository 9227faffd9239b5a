#include "app/AppDelegate.h"
#include "base/Error.h"
#include "hosts/linux/bus/DBusApplication.h"
#include "hosts/linux/bus/DBusUserNotificationCenter.h"
#include "hosts/linux/bus/SingleInstance.h"
#include "hosts/linux/desktop/Display.h"
#include "hosts/linux/desktop/HeadlessApplication.h"
#include "hosts/linux/desktop/QtApplication.h"
#include "hosts/linux/file-managers/FileManagerEntries.h"
#include "hosts/linux/files/FileUserDefaults.h"
#include "hosts/linux/files/GioWorkspace.h"
#include "hosts/linux/files/PosixFileManager.h"
#include "hosts/linux/files/URIList.h"
#include "hosts/linux/files/XDGFolders.h"
#include "hosts/linux/keyring/LibsecretKeychain.h"
#include "hosts/linux/keyring/SecretServiceUnlock.h"
#include "hosts/linux/media/FfmpegMediaFramework.h"
#include "hosts/linux/network/CurlURLSession.h"
#include "hosts/linux/sign-in/BrowserWebAuthentication.h"
#include "hosts/linux/sign-in/DesktopBrowser.h"
#include "hosts/linux/sign-in/GioURLSchemeOwnership.h"
#include "hosts/linux/system/GetentropyRandomSource.h"
#include "hosts/linux/system/PosixProcessLauncher.h"
#include "hosts/linux/system/QtClock.h"
#include "hosts/linux/system/QtMainActor.h"
#include "hosts/linux/system/StderrSystemLog.h"
#include "hosts/linux/system/ThreadBackgroundExecutor.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QStandardPaths>

#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace cadora {

namespace {

// EX_UNAVAILABLE of sysexits.h: the request could not be handed on, or there is no desktop to serve.
constexpr int unavailable = 69;

constexpr int claimAttempts = 10;

void report(const std::string& problem) {
    StderrSystemLog().log("[Cadora Helper] " + problem);
}

// A standard descriptor that is closed would go to the next file or socket, and log lines with it.
void fillStandardDescriptors() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
}

// A full disk, a limit or a reader that went away is an error where it occurs, and not the program's end.
void ignoreSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

// A sign-in's callback carries a token, and everybody on the machine can read the list of processes.
void hideOwnURLs(const std::vector<char*>& arguments) {
    for (char* const argument : arguments) {
        if (isOwnURL(argument)) {
            explicit_bzero(argument, std::strlen(argument));
        }
    }
}

// The exit status of a start that another helper has dealt with; absent when this one is to run.
std::optional<int> forward(const std::vector<std::string>& uris) {
    const Forwarding forwarding = forwardToRunningHelper(uris);
    switch (forwarding.outcome) {
    case Forwarding::Outcome::done:
        return EXIT_SUCCESS;
    case Forwarding::Outcome::nobodyRuns:
        return std::nullopt;
    case Forwarding::Outcome::refused:
        report(forwarding.reason);
        return EXIT_FAILURE;
    case Forwarding::Outcome::noAnswer:
        report("the helper that runs did not answer: " + forwarding.reason);
        return unavailable;
    case Forwarding::Outcome::noSessionBus:
        report("there is no session bus: " + forwarding.reason);
        return unavailable;
    }
    return unavailable;
}

std::filesystem::path programFolder() {
    return QCoreApplication::applicationDirPath().toStdString();
}

// What goes to the Trash: the folder of an installation, but of a build folder no more than the program.
std::filesystem::path bundle() {
    std::filesystem::path folder = programFolder().parent_path();
    if (folder.filename() == "cadora-helper") {
        return folder;
    }
    return QCoreApplication::applicationFilePath().toStdString();
}

std::filesystem::path defaultsFile() {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return std::filesystem::path(folder.toStdString()) / "com.norvelant.cadora.mac" / "defaults.json";
}

std::unique_ptr<QCoreApplication> makeQtApplication(int& argumentCount, char** arguments) {
    QCoreApplication::setApplicationName("Cadora Helper");
    if (findDisplay() == Display::present) {
        return std::make_unique<QApplication>(argumentCount, arguments);
    }
    return std::make_unique<QCoreApplication>(argumentCount, arguments);
}

// The application with what shows it, or without where there is no display.
struct Desktop {
    std::unique_ptr<Application> application;
    std::function<void()> showMenus;
};

Desktop makeDesktop(MainActor& mainActor, DBusApplication& services, FileManagerEntries& entries) {
    if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) {
        return {std::make_unique<HeadlessApplication>(services, entries, bundle()), [] {}};
    }
    auto shown = std::make_unique<QtApplication>(mainActor, services, entries, QDBusConnection::sessionBus(),
                                                 bundle());
    const auto showMenus = [application = shown.get()] { application->showMenusUnlessInPanel(); };
    return {std::move(shown), showMenus};
}

// What a sign-in needs of the desktop.
struct SignInParts {
    SecretServiceUnlock keyring{QDBusConnection::sessionBus()};
    GioURLSchemeOwnership scheme{XDGFolders::ofUser(), QCoreApplication::applicationFilePath().toStdString()};
    DesktopBrowser browser{QDBusConnection::sessionBus()};
};

// The sign-in through the browser, or none where there is no display to show it on.
std::unique_ptr<WebAuthentication> makeWebAuthentication(MainActor& mainActor, BackgroundExecutor& background,
                                                         DBusApplication& services, SignInParts& parts) {
    if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) {
        return std::make_unique<HeadlessWebAuthentication>();
    }
    return std::make_unique<BrowserWebAuthentication>(mainActor, background, services, parts.keyring,
                                                      parts.scheme, parts.browser);
}

// Runs the helper until the desktop ends. The name on the bus is ours already.
int serve(DBusApplication& services, StderrSystemLog& systemLog, const std::vector<std::string>& uris) {
    QtMainActor mainActor;
    QtClock clock;
    SignInParts signInParts;
    ThreadBackgroundExecutor background;
    PosixFileManager fileManager;
    GetentropyRandomSource random;
    FileUserDefaults userDefaults(fileManager, defaultsFile());
    LibsecretKeychain keychain;
    CurlURLSession urlSession(mainActor);
    FfmpegMediaFramework mediaFramework(mainActor, systemLog, programFolder() / "cadora-export");
    DBusUserNotificationCenter notificationCenter(mainActor, QDBusConnection::sessionBus());
    FileManagerEntries entries(XDGFolders::ofUser(), programFolder() / "cadora-send", userDefaults,
                               systemLog);
    const Desktop desktop = makeDesktop(mainActor, services, entries);
    const auto webAuthentication = makeWebAuthentication(mainActor, background, services, signInParts);
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
    Platform::install(&platform);

    services.setBusLostHandler([] {
        report("the session bus is gone");
        QCoreApplication::exit(unavailable);
    });
    // Before the event loop: a request may have come with the name already, and the loop brings it in.
    AppDelegate delegate;
    services.setReopenHandler([&] {
        delegate.applicationShouldHandleReopen(false);
        desktop.showMenus();
    });
    desktop.application->setActivationPolicy(Application::ActivationPolicy::accessory);
    delegate.applicationDidFinishLaunching();
    if (!uris.empty()) {
        if (const std::string error = services.open(uris); !error.empty()) {
            report(error);
        }
    }
    const int status = QCoreApplication::exec();
    mainActor.endTasks();
    return status;
}

int run(int argc, char** argv) {
    fillStandardDescriptors();
    ignoreSignals();
    std::error_code folderIsGone;
    const std::vector<std::string> uris =
        uriList({argv + 1, argv + argc}, std::filesystem::current_path(folderIsGone));
    hideOwnURLs({argv + 1, argv + argc});
    if (const auto status = forward(uris)) {
        return *status;
    }
    // The arguments are files, and none is meant for Qt.
    int argumentCount = 1;
    const auto qt = makeQtApplication(argumentCount, argv);
    StderrSystemLog systemLog;
    DBusApplication services(QDBusConnection::sessionBus(), systemLog);
    for (int attempt = 1; services.claimName() == DBusApplication::Claim::anotherRuns; ++attempt) {
        // Another start was faster by a moment, and takes what this one was given, unless it has ended since.
        if (const auto status = forward(uris)) {
            return *status;
        }
        if (attempt == claimAttempts) {
            report("other starts come and go, and none stays");
            return unavailable;
        }
    }
    return serve(services, systemLog, uris);
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
