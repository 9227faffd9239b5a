#include "hosts/linux/keyring/SecretServiceUnlock.h"

#include <QDBusArgument>
#include <QList>
#include <QPointer>
#include <QVariantMap>

#include <utility>

namespace cadora {

namespace {

const QString serviceName = QStringLiteral("org.freedesktop.secrets");
const QString promptInterface = QStringLiteral("org.freedesktop.Secret.Prompt");
// The path that stands for none.
const QString nothing = QStringLiteral("/");

QDBusMessage serviceCall(const char* method) {
    return QDBusMessage::createMethodCall(serviceName, QStringLiteral("/org/freedesktop/secrets"),
                                          QStringLiteral("org.freedesktop.Secret.Service"),
                                          QLatin1String(method));
}

QDBusObjectPath objectPath(const QDBusMessage& reply, qsizetype index) {
    return reply.arguments().value(index).value<QDBusObjectPath>();
}

} // namespace

SecretServiceQuestion::SecretServiceQuestion(QDBusConnection bus, std::string parentWindow,
                                             KeyringUnlock::Handler handler)
    : bus_(std::move(bus)), parentWindow_(std::move(parentWindow)), handler_(std::move(handler)) {}

void SecretServiceQuestion::ask() {
    QDBusMessage message = serviceCall("ReadAlias");
    message << QStringLiteral("default");
    call(message, [this](const QDBusMessage& reply) {
        const QDBusObjectPath collection = objectPath(reply, 0);
        if (collection.path() == nothing) {
            makeCollection();
        } else {
            unlock(collection);
        }
    });
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
        end({});
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
    end(dismissed ? "it stayed locked" : "");
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
