#pragma once

#include "hosts/linux/keyring/KeyringUnlock.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <memory>
#include <string>

namespace cadora {

// One way through the Secret Service's questions: have Plasma's wallet begin to serve it where nobody does,
// unlock the default collection, or make one where there is none, and see whether what is stored could reach
// it. Every call is asynchronous, so that a question may stay open for as long as the user likes.
class SecretServiceQuestion : public QObject {
    Q_OBJECT

public:
    SecretServiceQuestion(QDBusConnection bus, std::string parentWindow, KeyringUnlock::Handler handler);

    void ask();

private Q_SLOTS:
    void completed(bool dismissed, const QDBusVariant& result);

private:
    void readDefault();
    void startWallet(const QStringList& names);
    void waitForService();
    void openSession();
    void unlock(const QDBusObjectPath& collection);
    void makeCollection();
    void show(const QDBusObjectPath& prompt);
    void call(const QDBusMessage& message, const std::function<void(const QDBusMessage& reply)>& proceed);
    void end(const std::string& problem);

    QDBusConnection bus_;
    std::string parentWindow_;
    KeyringUnlock::Handler handler_;
    QDBusServiceWatcher watcher_;
    QTimer patience_;
};

class SecretServiceUnlock : public KeyringUnlock {
public:
    explicit SecretServiceUnlock(QDBusConnection bus) : bus_(std::move(bus)) {}

    CancelAction unlock(const std::string& parentWindow, Handler handler) override;

private:
    QDBusConnection bus_;
};

} // namespace cadora
