#include "hosts/linux/sign-in/DesktopBrowser.h"

#include "hosts/linux/system/FileDescriptor.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QSocketNotifier>

#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cadora {

namespace {

const QString portalName = QStringLiteral("org.freedesktop.portal.Desktop");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");

// A portal whose own helpers fail to start keeps callers waiting for as long as D-Bus allows.
constexpr std::chrono::milliseconds portalPatience = std::chrono::seconds(10);

enum PortalResponse : uint { responseSuccess = 0, responseDismissed = 1 };

// The exit statuses of xdg-open, which says nothing on its standard output.
std::string meaning(int status) {
    switch (status) {
    case 3:
        return "no program for web pages was found";
    default:
        return "the desktop’s default browser did not start";
    }
}

struct Spawned {
    int error = 0; // an errno value, or 0
    pid_t process = 0;
};

Spawned spawnXDGOpen(std::string url) {
    std::string program = "xdg-open";
    char* arguments[] = {program.data(), url.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // In a session of its own, so that what ends this program's terminal spares the browser.
    // Nor does it inherit which signals this program ignores.
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
    Spawned result;
    result.error = posix_spawnp(&result.process, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return result;
}

} // namespace

DesktopBrowser::DesktopBrowser(QDBusConnection bus) : bus_(std::move(bus)) {}

void DesktopBrowser::open(const URL& page, const std::string& parentWindow, FailureHandler handler) {
    const QString token = QStringLiteral("cadora_%1").arg(++count_);
    const QString sender = bus_.baseService().mid(1).replace(QLatin1Char('.'), QLatin1Char('_'));
    const QString path = QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
    requests_.emplace(path, Request{page, std::move(handler)});
    // Before the call: the answer may come with its reply.
    bus_.connect(portalName, path, requestInterface, QStringLiteral("Response"), this,
                 SLOT(portalAnswered(uint, QVariantMap, QDBusMessage)));
    QDBusMessage call = QDBusMessage::createMethodCall(
        portalName, QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.portal.OpenURI"), QStringLiteral("OpenURI"));
    call << QString::fromStdString(parentWindow) << QString::fromStdString(page.text())
         << QVariantMap{{QStringLiteral("handle_token"), token}};
    auto* const watcher =
        new QDBusPendingCallWatcher(bus_.asyncCall(call, static_cast<int>(portalPatience.count())), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, path] {
        watcher->deleteLater();
        const auto request = requests_.find(path);
        if (!watcher->isError() || request == requests_.end()) {
            return;
        }
        const Request waiting = request->second;
        forget(path);
        openByCommand(waiting);
    });
}

void DesktopBrowser::portalAnswered(uint response, const QVariantMap&, const QDBusMessage& message) {
    const auto found = requests_.find(message.path());
    if (found == requests_.end()) {
        return;
    }
    const Request request = found->second;
    forget(message.path());
    if (response == responseDismissed) {
        request.handler("no browser was chosen");
    } else if (response != responseSuccess) {
        openByCommand(request);
    }
}

void DesktopBrowser::forget(const QString& requestPath) {
    bus_.disconnect(portalName, requestPath, requestInterface, QStringLiteral("Response"), this,
                    SLOT(portalAnswered(uint, QVariantMap, QDBusMessage)));
    requests_.erase(requestPath);
}

// The command ends at once or with the browser: only a failure means anything.
void DesktopBrowser::openByCommand(const Request& request) {
    const Spawned spawned = spawnXDGOpen(request.page.text());
    if (spawned.error != 0) {
        request.handler(std::string("xdg-open: ") + std::strerror(spawned.error));
        return;
    }
    const auto end =
        std::make_shared<FileDescriptor>(static_cast<int>(syscall(SYS_pidfd_open, spawned.process, 0)));
    if (!*end) {
        return;
    }
    auto* const ended = new QSocketNotifier(end->get(), QSocketNotifier::Read, this);
    connect(ended, &QSocketNotifier::activated, this,
            [ended, end, process = spawned.process, handler = request.handler] {
                ended->setEnabled(false);
                ended->deleteLater();
                int status = 0;
                waitpid(process, &status, WNOHANG);
                if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
                    handler(meaning(WEXITSTATUS(status)));
                }
            });
}

} // namespace cadora
