#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>

#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

// A notification server that remembers what it was asked to show.
class NotificationServer : public QDBusVirtualObject {
public:
    struct Notification {
        std::string application;
        unsigned replaces;
        std::string icon;
        std::string summary;
        std::string body;
        QStringList actions;
        QVariantMap hints;
        int timeout;
    };

    // Takes the name on the bus, on which it must be free.
    NotificationServer(QDBusConnection bus, QStringList capabilities)
        : bus_(std::move(bus)), capabilities_(std::move(capabilities)) {
        bus_.registerVirtualObject("/org/freedesktop/Notifications", this);
        owned = bus_.registerService("org.freedesktop.Notifications");
    }
    ~NotificationServer() override {
        if (bus_.isConnected()) {
            bus_.unregisterService("org.freedesktop.Notifications");
        }
    }

    bool owned = false;
    int capabilityCalls = 0;
    // Capability calls stay unanswered until answerCapabilities().
    bool holdsCapabilities = false;
    // Notifications are shown, but their senders are not told until answerNotifications().
    bool holdsAnswers = false;
    std::vector<Notification> notifications;

    void answerNotifications() {
        holdsAnswers = false;
        for (const QDBusMessage& message : std::exchange(unanswered_, {})) {
            bus_.send(message.createReply(1U));
        }
    }

    void answerCapabilities() {
        for (const QDBusMessage& message : held_) {
            bus_.send(message.createReply(capabilities_));
        }
        held_.clear();
        holdsCapabilities = false;
    }

    std::vector<std::string> bodies() const {
        std::vector<std::string> bodies;
        bodies.reserve(notifications.size());
        for (const auto& notification : notifications) {
            bodies.push_back(notification.body);
        }
        return bodies;
    }

    // Leaves the bus without a word, as a server that crashes does.
    void crash() {
        const QString connection = bus_.name();
        held_.clear();
        bus_ = QDBusConnection(QString());
        QDBusConnection::disconnectFromBus(connection);
    }

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        if (message.member() == "GetCapabilities") {
            ++capabilityCalls;
            held_.push_back(message);
            if (!holdsCapabilities) {
                answerCapabilities();
            }
            return true;
        }
        const QVariantList arguments = message.arguments();
        if (message.member() != "Notify" || message.signature() != "susssasa{sv}i") {
            return false;
        }
        notifications.push_back({arguments[0].toString().toStdString(), arguments[1].toUInt(),
                                 arguments[2].toString().toStdString(), arguments[3].toString().toStdString(),
                                 arguments[4].toString().toStdString(), arguments[5].toStringList(),
                                 qdbus_cast<QVariantMap>(arguments[6]), arguments[7].toInt()});
        if (holdsAnswers) {
            unanswered_.push_back(message);
        } else if (message.isReplyRequired()) {
            bus_.send(message.createReply(static_cast<quint32>(notifications.size())));
        }
        return true;
    }

private:
    QDBusConnection bus_;
    QStringList capabilities_;
    std::vector<QDBusMessage> held_;
    std::vector<QDBusMessage> unanswered_;
};

} // namespace cadora::test
