#include "hosts/linux/bus/DBusUserNotificationCenter.h"

#include "hosts/linux/bus/DBusNames.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

#include <utility>

namespace cadora {

namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");

QDBusMessage methodCall(const QString& method) {
    return QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/Notifications"), service,
                                          method);
}

QString escaped(const QString& text) {
    QString result;
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '&':
            result += QLatin1String("&amp;");
            break;
        case '<':
            result += QLatin1String("&lt;");
            break;
        case '>':
            result += QLatin1String("&gt;");
            break;
        case '"':
            result += QLatin1String("&quot;");
            break;
        case '\'':
            result += QLatin1String("&#39;");
            break;
        default:
            result += c;
        }
    }
    return result;
}

} // namespace

DBusUserNotificationCenter::DBusUserNotificationCenter(MainActor& mainActor, QDBusConnection bus)
    : mainActor_(mainActor), bus_(std::move(bus)),
      watcher_(service, bus_, QDBusServiceWatcher::WatchForOwnerChange) {
    QObject::connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, &answers_,
                     [this] { markup_ = std::nullopt; });
}

void DBusUserNotificationCenter::requestAuthorization(unsigned) {}

void DBusUserNotificationCenter::add(UserNotificationRequest request) {
    mainActor_.post([this, request = std::move(request)] {
        waiting_.push_back(request);
        if (markup_) {
            deliverWaiting();
        } else if (waiting_.size() == 1) {
            askCapabilities();
        }
    });
}

void DBusUserNotificationCenter::askCapabilities() {
    auto* const answer =
        new QDBusPendingCallWatcher(bus_.asyncCall(methodCall(QStringLiteral("GetCapabilities"))), &answers_);
    QObject::connect(answer, &QDBusPendingCallWatcher::finished, &answers_, [this, answer] {
        answer->deleteLater();
        const QDBusPendingReply<QStringList> capabilities = *answer;
        if (capabilities.isError()) {
            waiting_.clear();
            return;
        }
        markup_ = capabilities.value().contains(QLatin1String("body-markup")) ? Markup::body : Markup::none;
        deliverWaiting();
    });
}

void DBusUserNotificationCenter::deliverWaiting() {
    for (; !waiting_.empty(); waiting_.pop_front()) {
        const UserNotificationRequest& request = waiting_.front();
        const QString body = QString::fromStdString(request.body);
        const quint32 replacesNothing = 0;
        const int serverDecidesHowLong = -1;
        // By which the desktop knows the program: its name, its icon, and whether the user has silenced it.
        const QVariantMap hints{{QStringLiteral("suppress-sound"), true},
                                {QStringLiteral("desktop-entry"), QString::fromLatin1(dbus::busName)}};
        QDBusMessage notify = methodCall(QStringLiteral("Notify"));
        notify << QStringLiteral("Cadora Helper") << replacesNothing << QStringLiteral("cadora-helper")
               << QString::fromStdString(request.title) << (markup_ == Markup::body ? escaped(body) : body)
               << QStringList() << hints << serverDecidesHowLong;
        bus_.send(notify);
    }
}

} // namespace cadora
