#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>

#include <utility>

namespace cadora::test {

// Another program on the bus that counts the calls and keeps every caller waiting.
class SilentService : public QDBusVirtualObject {
public:
    SilentService(QDBusConnection bus, QString name, const QString& path)
        : bus_(std::move(bus)), name_(std::move(name)) {
        bus_.registerVirtualObject(path, this);
        bus_.registerService(name_);
    }
    ~SilentService() override {
        if (bus_.isConnected()) {
            bus_.unregisterService(name_);
        }
    }

    int calls = 0;

    // Leaves the bus without a word, as a program that crashes does.
    void crash() {
        const QString connection = bus_.name();
        bus_ = QDBusConnection(QString());
        QDBusConnection::disconnectFromBus(connection);
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage&, const QDBusConnection&) override {
        ++calls;
        return true;
    }

private:
    QDBusConnection bus_;
    QString name_;
};

} // namespace cadora::test
