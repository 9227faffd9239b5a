#pragma once

#include "hosts/linux/bus/DBusNames.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>
#include <utility>

namespace cadora::dbus {

// The program's object on the bus, and the end of the bus itself.
class BusObject : public QObject {
    Q_OBJECT

public:
    explicit BusObject(QDBusConnection& bus);

    std::function<void()> onBusLost;

private Q_SLOTS:
    void busLost();
};

// What the file managers' "Send to Cadora" entries call.
class ServicesAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.norvelant.cadora.mac.Services")
    Q_CLASSINFO("D-Bus Introspection", "<interface name=\"com.norvelant.cadora.mac.Services\">\n"
                                       "  <method name=\"sendToCadora\">\n"
                                       "    <arg name=\"uris\" type=\"as\" direction=\"in\"/>\n"
                                       "    <arg name=\"userData\" type=\"s\" direction=\"in\"/>\n"
                                       "    <arg name=\"error\" type=\"s\" direction=\"out\"/>\n"
                                       "  </method>\n"
                                       "</interface>\n")

public:
    using Send =
        std::function<QString(const QStringList& uris, const QString& userData, const QString& caller)>;

    ServicesAdaptor(QObject& object, Send send) : QDBusAbstractAdaptor(&object), send_(std::move(send)) {}

public Q_SLOTS:
    QString sendToCadora(const QStringList& uris, const QString& userData, const QDBusMessage& message) {
        return send_(uris, userData, message.service());
    }

private:
    Send send_;
};

// What becomes of the files of a caller's send requests, which are answered before the files are copied.
class StagingAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.norvelant.cadora.mac.Staging")
    Q_CLASSINFO("D-Bus Introspection", "<interface name=\"com.norvelant.cadora.mac.Staging\">\n"
                                       "  <method name=\"problems\">\n"
                                       "    <arg name=\"problems\" type=\"as\" direction=\"out\"/>\n"
                                       "  </method>\n"
                                       "</interface>\n")

public:
    // Answers the message some time.
    using Ask = std::function<void(const QDBusMessage& message)>;

    StagingAdaptor(QObject& object, Ask ask) : QDBusAbstractAdaptor(&object), ask_(std::move(ask)) {}

public Q_SLOTS:
    QStringList problems(const QDBusMessage& message) {
        message.setDelayedReply(true);
        ask_(message);
        return {};
    }

private:
    Ask ask_;
};

// The desktop's own way to open a program.
class ApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
    Q_CLASSINFO("D-Bus Introspection", "<interface name=\"org.freedesktop.Application\">\n"
                                       "  <method name=\"Activate\">\n"
                                       "    <arg name=\"platform_data\" type=\"a{sv}\" direction=\"in\"/>\n"
                                       "  </method>\n"
                                       "  <method name=\"Open\">\n"
                                       "    <arg name=\"uris\" type=\"as\" direction=\"in\"/>\n"
                                       "    <arg name=\"platform_data\" type=\"a{sv}\" direction=\"in\"/>\n"
                                       "  </method>\n"
                                       "  <method name=\"ActivateAction\">\n"
                                       "    <arg name=\"action_name\" type=\"s\" direction=\"in\"/>\n"
                                       "    <arg name=\"parameter\" type=\"av\" direction=\"in\"/>\n"
                                       "    <arg name=\"platform_data\" type=\"a{sv}\" direction=\"in\"/>\n"
                                       "  </method>\n"
                                       "</interface>\n")

public:
    struct Refusal {
        QString error; // its name on the bus; empty when nothing is refused
        QString reason;
    };

    // What the calls do. The first one gets what the desktop gave, before the others.
    struct Calls {
        std::function<void(const QVariantMap& platformData)> takePlatformData;
        std::function<Refusal()> activate;
        std::function<Refusal(const QStringList& uris)> open;
        std::function<Refusal(const QString& action)> activateAction;
    };

    ApplicationAdaptor(QObject& object, QDBusConnection bus, Calls calls);

public Q_SLOTS:
    void Activate(const QVariantMap& platformData, const QDBusMessage& message);
    void Open(const QStringList& uris, const QVariantMap& platformData, const QDBusMessage& message);
    void ActivateAction(const QString& name, const QVariantList& parameter, const QVariantMap& platformData,
                        const QDBusMessage& message);

private:
    void answer(const QDBusMessage& message, const Refusal& refusal);

    QDBusConnection bus_;
    Calls calls_;
};

} // namespace cadora::dbus
