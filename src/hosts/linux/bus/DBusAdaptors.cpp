#include "hosts/linux/bus/DBusAdaptors.h"

namespace cadora::dbus {

BusObject::BusObject(QDBusConnection& bus) {
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(busLost()));
}

void BusObject::busLost() {
    if (onBusLost) {
        onBusLost();
    }
}

ApplicationAdaptor::ApplicationAdaptor(QObject& object, QDBusConnection bus, std::function<void()> activate,
                                       OpenURIs open)
    : QDBusAbstractAdaptor(&object), bus_(std::move(bus)), activate_(std::move(activate)),
      open_(std::move(open)) {}

void ApplicationAdaptor::Activate(const QVariantMap&) {
    activate_();
}

void ApplicationAdaptor::Open(const QStringList& uris, const QVariantMap&, const QDBusMessage& message) {
    if (const QString error = open_(uris); !error.isEmpty()) {
        refuse(message, error);
    }
}

void ApplicationAdaptor::ActivateAction(const QString& name, const QVariantList&, const QVariantMap&,
                                        const QDBusMessage& message) {
    refuse(message, QStringLiteral("There is no action “%1”.").arg(name));
}

void ApplicationAdaptor::refuse(const QDBusMessage& message, const QString& reason) {
    message.setDelayedReply(true);
    bus_.send(message.createErrorReply(QString::fromLatin1(requestRefused), reason));
}

} // namespace cadora::dbus
