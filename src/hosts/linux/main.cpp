#include "app/AppDelegate.h"
#include "base/Error.h"
#include "hosts/linux/CurlURLSession.h"
#include "hosts/linux/DBusApplication.h"
#include "hosts/linux/DBusUserNotificationCenter.h"
#include "hosts/linux/FfmpegMediaFramework.h"
#include "hosts/linux/FileUserDefaults.h"
#include "hosts/linux/GetentropyRandomSource.h"
#include "hosts/linux/LibsecretKeychain.h"
#include "hosts/linux/PosixFileManager.h"
#include "hosts/linux/QtClock.h"
#include "hosts/linux/QtMainActor.h"
#include "hosts/linux/SingleInstance.h"
#include "hosts/linux/StderrSystemLog.h"
#include "hosts/linux/ThreadBackgroundExecutor.h"
#include "hosts/linux/URIList.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QStandardPaths>

#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cadora {

namespace {

// EX_UNAVAILABLE of sysexits.h: the request could not be handed on, or there is no desktop to serve.
constexpr int unavailable = 69;

void report(const std::string& problem) {
    StderrSystemLog().log("[Cadora Helper] " + problem);
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

std::filesystem::path defaultsFile() {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return std::filesystem::path(folder.toStdString()) / "com.norvelant.cadora.mac" / "defaults.json";
}

// Runs the helper until the desktop ends. The name on the bus is ours already.
int serve(DBusApplication& application, StderrSystemLog& systemLog, const std::vector<std::string>& uris) {
    QtMainActor mainActor;
    QtClock clock;
    ThreadBackgroundExecutor background;
    PosixFileManager fileManager;
    GetentropyRandomSource random;
    FileUserDefaults userDefaults(fileManager, defaultsFile());
    LibsecretKeychain keychain;
    CurlURLSession urlSession(mainActor);
    FfmpegMediaFramework mediaFramework(mainActor, systemLog, programFolder() / "cadora-export");
    DBusUserNotificationCenter notificationCenter(mainActor, QDBusConnection::sessionBus());
    const Platform platform{mainActor,          background,   clock,    fileManager, random,
                            systemLog,          userDefaults, keychain, urlSession,  mediaFramework,
                            notificationCenter, application};
    Platform::install(&platform);

    AppDelegate delegate;
    mainActor.post([&] {
        delegate.applicationDidFinishLaunching();
        const std::string error = uris.empty() ? std::string() : application.open(uris);
        if (!error.empty()) {
            report(error);
        }
    });
    application.setBusLostHandler([] { QCoreApplication::quit(); });
    const int status = QCoreApplication::exec();
    mainActor.endTasks();
    return status;
}

int run(int argc, char** argv) {
    const std::vector<std::string> uris = uriList({argv + 1, argv + argc}, std::filesystem::current_path());
    if (const auto status = forward(uris)) {
        return *status;
    }
    QCoreApplication::setApplicationName("Cadora Helper");
    const QCoreApplication qt(argc, argv);
    StderrSystemLog systemLog;
    DBusApplication application(QDBusConnection::sessionBus(), systemLog);
    if (application.claimName() == DBusApplication::Claim::anotherRuns) {
        // Another start was faster by a moment, and takes what this one was given.
        return forward(uris).value_or(unavailable);
    }
    return serve(application, systemLog, uris);
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
