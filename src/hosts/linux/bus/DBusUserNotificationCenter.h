#pragma once

#include "base/MainActor.h"
#include "platform/UserNotificationCenter.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QString>

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace cadora {

// The desktop's notification server (org.freedesktop.Notifications). What it can do is asked at the
// beginning, if it runs then, else when there is first something to show, and anew after the server has
// changed hands; requests wait for that answer, so that they arrive in the order in which they were added.
// Once it is known, a request that is added on the main thread is with the bus when add() returns. Without a
// server they are dropped. Nobody asks the user for permission: the server itself lets the user silence a
// program.
//
// A server that falls behind is not flooded: once many are unanswered, one that equals one of those waits for
// an answer, and so does one alone, however many more come.
//
// Before the first of several alike is sent, the bus is asked who the server is: that is a wait, if a short
// one.
class DBusUserNotificationCenter : public UserNotificationCenter {
public:
    static constexpr std::size_t mostUnanswered = 64;

    // Created and destroyed on the main thread, and destroyed only when `mainActor` runs no more jobs.
    DBusUserNotificationCenter(MainActor& mainActor, QDBusConnection bus);

    void requestAuthorization(unsigned options) override;
    void add(UserNotificationRequest request) override;

private:
    enum class Markup { none, body };
    enum class Server { ifItRuns, started };
    using Text = std::pair<std::string, std::string>; // title and body

    void accept(const UserNotificationRequest& request);
    void askCapabilities(Server server);
    void deliverWaiting();
    bool mustWait(const Text& text) const;
    void deliver(const Text& text);

    MainActor& mainActor_;
    QDBusConnection bus_;
    QDBusServiceWatcher watcher_;
    // Absent while it isn't known what the server makes of a body.
    std::optional<Markup> markup_;
    // Whose answer that was.
    QString server_;
    bool isStartingServer_ = false;
    bool hasShownAny_ = false;
    std::deque<Text> waiting_;
    std::map<Text, std::size_t> unanswered_;
    std::size_t unansweredCount_ = 0;
    // The context of answers that are still to come: they find nobody once it is gone.
    QObject answers_;
};

} // namespace cadora
