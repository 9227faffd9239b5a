#include "hosts/linux/bus/DBusUserNotificationCenter.h"

#include "hosts/linux/bus/DBusNames.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QThread>
#include <QVariantMap>

#include <algorithm>
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
                     [this](const QString&, const QString&, const QString& owner) {
                         markup_ = std::nullopt;
                         if (hasShownAny_ && !owner.isEmpty() && !isStartingServer_) {
                             askCapabilities(Server::ifItRuns);
                         }
                     });
    askCapabilities(Server::ifItRuns);
}

void DBusUserNotificationCenter::requestAuthorization(unsigned) {}

void DBusUserNotificationCenter::add(UserNotificationRequest request) {
    if (QThread::currentThread() == answers_.thread()) {
        accept(request);
        return;
    }
    mainActor_.post([this, request = std::move(request)] { accept(request); });
}

void DBusUserNotificationCenter::accept(const UserNotificationRequest& request) {
    hasShownAny_ = true;
    const Text text{request.title, request.body};
    // Word that the server has changed hands may be on its way, behind what has led here.
    if (markup_ && !unanswered_.contains(text) &&
        bus_.interface()->serviceOwner(service).value() != server_) {
        markup_ = std::nullopt;
    }
    if (!markup_) {
        waiting_.push_back(text);
        if (!isStartingServer_) {
            askCapabilities(Server::started);
        }
    } else if (!mustWait(text)) {
        deliver(text);
    } else if (std::find(waiting_.begin(), waiting_.end(), text) == waiting_.end()) {
        waiting_.push_back(text);
    }
}

void DBusUserNotificationCenter::askCapabilities(Server server) {
    isStartingServer_ = isStartingServer_ || server == Server::started;
    QDBusMessage question = methodCall(QStringLiteral("GetCapabilities"));
    question.setAutoStartService(server == Server::started);
    auto* const answer = new QDBusPendingCallWatcher(bus_.asyncCall(question), &answers_);
    QObject::connect(answer, &QDBusPendingCallWatcher::finished, &answers_, [this, answer, server] {
        answer->deleteLater();
        isStartingServer_ = isStartingServer_ && server != Server::started;
        const QDBusPendingReply<QStringList> capabilities = *answer;
        if (!capabilities.isError()) {
            server_ = capabilities.reply().service();
            markup_ =
                capabilities.value().contains(QLatin1String("body-markup")) ? Markup::body : Markup::none;
            deliverWaiting();
        } else if (server == Server::started && !markup_) {
            waiting_.clear();
        }
    });
}

void DBusUserNotificationCenter::deliverWaiting() {
    while (markup_ && !waiting_.empty() && !mustWait(waiting_.front())) {
        deliver(waiting_.front());
        waiting_.pop_front();
    }
}

bool DBusUserNotificationCenter::mustWait(const Text& text) const {
    return unansweredCount_ >= mostUnanswered && unanswered_.contains(text);
}

void DBusUserNotificationCenter::deliver(const Text& text) {
    const auto& [title, body] = text;
    const QString shownBody = QString::fromStdString(body);
    const quint32 replacesNothing = 0;
    const int serverDecidesHowLong = -1;
    // By which the desktop knows the program: its name, its icon, and whether the user has silenced it.
    const QVariantMap hints{{QStringLiteral("suppress-sound"), true},
                            {QStringLiteral("desktop-entry"), QString::fromLatin1(dbus::busName)}};
    QDBusMessage notify = methodCall(QStringLiteral("Notify"));
    notify << QStringLiteral("Cadora Helper") << replacesNothing << QStringLiteral("cadora-helper")
           << QString::fromStdString(title) << (markup_ == Markup::body ? escaped(shownBody) : shownBody)
           << QStringList() << hints << serverDecidesHowLong;
    ++unanswered_[text];
    ++unansweredCount_;
    auto* const answer = new QDBusPendingCallWatcher(bus_.asyncCall(notify), &answers_);
    QObject::connect(answer, &QDBusPendingCallWatcher::finished, &answers_, [this, answer, text] {
        answer->deleteLater();
        --unansweredCount_;
        if (const auto found = unanswered_.find(text); --found->second == 0) {
            unanswered_.erase(found);
        }
        deliverWaiting();
    });
}

} // namespace cadora
