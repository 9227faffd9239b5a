#pragma once

#include "base/MainActor.h"
#include "platform/UserNotificationCenter.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>

#include <deque>
#include <optional>

namespace cadora {

// The desktop's notification server (org.freedesktop.Notifications). What it can do is asked when there is
// first something to show, and anew after the server has changed hands; requests wait for that answer, so
// that they arrive in the order in which they were added. Without a server they are dropped. Nobody asks the
// user for permission: the server itself lets the user silence a program.
class DBusUserNotificationCenter : public UserNotificationCenter {
public:
    // Created and destroyed on the main thread, and destroyed only when `mainActor` runs no more jobs.
    DBusUserNotificationCenter(MainActor& mainActor, QDBusConnection bus);

    void requestAuthorization(unsigned options) override;
    void add(UserNotificationRequest request) override;

private:
    enum class Markup { none, body };

    void askCapabilities();
    void deliverWaiting();

    MainActor& mainActor_;
    QDBusConnection bus_;
    QDBusServiceWatcher watcher_;
    // Absent while it isn't known what the server makes of a body.
    std::optional<Markup> markup_;
    std::deque<UserNotificationRequest> waiting_;
    // The context of answers that are still to come: they find nobody once it is gone.
    QObject answers_;
};

} // namespace cadora
