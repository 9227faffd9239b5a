#include "hosts/linux/keyring/SecretServiceUnlock.h"

#include <QDBusArgument>
#include <QList>
#include <QPointer>
#include <QVariantMap>

#include <chrono>
#include <utility>

namespace cadora {

namespace {

const QString serviceName = QStringLiteral("org.freedesktop.secrets");
const QString promptInterface = QStringLiteral("org.freedesktop.Secret.Prompt");
constexpr std::chrono::seconds servicePatience(10);
constexpr const char* noKeyring =
    "none runs here. Install the package gnome-keyring or, for Plasma, kwalletmanager, "
    "and log in anew";
// The path that stands for none.
const QString nothing = QStringLiteral("/");

QDBusMessage serviceCall(const char* method) {
    return QDBusMessage::createMethodCall(serviceName, QStringLiteral("/org/freedesktop/secrets"),
                                          QStringLiteral("org.freedesktop.Secret.Service"),
                                          QLatin1String(method));
}

QDBusMessage defaultAlias() {
    QDBusMessage message = serviceCall("ReadAlias");
    message << QStringLiteral("default");
    return message;
}

// Whether nobody serves the Secret Service, and the bus knows of none that it could start.
bool isNobody(const QDBusError& error) {
    return error.type() == QDBusError::ServiceUnknown || error.name().contains(QLatin1String(".Spawn."));
}

QDBusObjectPath objectPath(const QDBusMessage& reply, qsizetype index) {
    return reply.arguments().value(index).value<QDBusObjectPath>();
}

} // namespace

SecretServiceQuestion::SecretServiceQuestion(QDBusConnection bus, std::string parentWindow,
                                             KeyringUnlock::Handler handler)
    : bus_(std::move(bus)), parentWindow_(std::move(parentWindow)), handler_(std::move(handler)),
      watcher_(serviceName, bus_, QDBusServiceWatcher::WatchForRegistration) {
    patience_.setSingleShot(true);
    connect(&patience_, &QTimer::timeout, this, [this] { end(noKeyring); });
}

void SecretServiceQuestion::ask() {
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(defaultAlias()), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        if (watcher->isError() && isNobody(watcher->error())) {
            startWallet({QStringLiteral("org.kde.kwalletd6"), QStringLiteral("org.kde.kwalletd5")});
        } else {
            readDefault();
        }
    });
}

// Plasma's wallet serves the Secret Service once it runs, but the bus knows it by its own name alone.
void SecretServiceQuestion::startWallet(const QStringList& names) {
    if (names.isEmpty()) {
        end(noKeyring);
        return;
    }
    const QString daemon = QStringLiteral("org.freedesktop.DBus");
    QDBusMessage message = QDBusMessage::createMethodCall(daemon, QStringLiteral("/org/freedesktop/DBus"),
                                                          daemon, QStringLiteral("StartServiceByName"));
    message << names.front() << 0U;
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, names] {
        watcher->deleteLater();
        if (watcher->isError()) {
            startWallet(names.mid(1));
        } else {
            waitForService();
        }
    });
}

void SecretServiceQuestion::waitForService() {
    patience_.start(servicePatience);
    connect(&watcher_, &QDBusServiceWatcher::serviceRegistered, this, [this] {
        patience_.stop();
        readDefault();
    });
    // It may serve already.
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(defaultAlias()), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        if (!watcher->isError() && patience_.isActive()) {
            patience_.stop();
            watcher_.disconnect(this);
            readDefault();
        }
    });
}

void SecretServiceQuestion::readDefault() {
    call(defaultAlias(), [this](const QDBusMessage& reply) {
        const QDBusObjectPath collection = objectPath(reply, 0);
        if (collection.path() == nothing) {
            makeCollection();
        } else {
            unlock(collection);
        }
    });
}

// A service that opens no session stores nothing, and says so only then.
void SecretServiceQuestion::openSession() {
    QDBusMessage message = serviceCall("OpenSession");
    message << QStringLiteral("plain") << QVariant::fromValue(QDBusVariant(QString()));
    call(message, [this](const QDBusMessage&) { end({}); });
}

void SecretServiceQuestion::unlock(const QDBusObjectPath& collection) {
    QDBusMessage message = serviceCall("Unlock");
    message << QVariant::fromValue(QList<QDBusObjectPath>{collection});
    call(message, [this](const QDBusMessage& reply) { show(objectPath(reply, 1)); });
}

void SecretServiceQuestion::makeCollection() {
    QDBusMessage message = serviceCall("CreateCollection");
    message << QVariantMap{{QStringLiteral("org.freedesktop.Secret.Collection.Label"),
                            QStringLiteral("Default keyring")}}
            << QStringLiteral("default");
    call(message, [this](const QDBusMessage& reply) { show(objectPath(reply, 1)); });
}

void SecretServiceQuestion::show(const QDBusObjectPath& prompt) {
    if (prompt.path() == nothing) {
        openSession();
        return;
    }
    bus_.connect(serviceName, prompt.path(), promptInterface, QStringLiteral("Completed"), this,
                 SLOT(completed(bool, QDBusVariant)));
    QDBusMessage message =
        QDBusMessage::createMethodCall(serviceName, prompt.path(), promptInterface, QStringLiteral("Prompt"));
    message << QString::fromStdString(parentWindow_);
    call(message, [](const QDBusMessage&) {});
}

void SecretServiceQuestion::completed(bool dismissed, const QDBusVariant&) {
    if (dismissed) {
        end("it stayed locked");
    } else {
        openSession();
    }
}

void SecretServiceQuestion::call(const QDBusMessage& message,
                                 const std::function<void(const QDBusMessage& reply)>& proceed) {
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, proceed] {
        watcher->deleteLater();
        if (watcher->isError()) {
            end(watcher->error().message().toStdString());
        } else {
            proceed(watcher->reply());
        }
    });
}

void SecretServiceQuestion::end(const std::string& problem) {
    deleteLater();
    if (const auto handler = std::exchange(handler_, nullptr)) {
        handler(problem);
    }
}

CancelAction SecretServiceUnlock::unlock(const std::string& parentWindow, Handler handler) {
    const QPointer question(new SecretServiceQuestion(bus_, parentWindow, std::move(handler)));
    question->ask();
    // The prompt is left to the user: a keyring daemon that is told to dismiss it may crash.
    return [question] { delete question.data(); };
}

} // namespace cadora
