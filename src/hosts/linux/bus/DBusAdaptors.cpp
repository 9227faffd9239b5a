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

ApplicationAdaptor::ApplicationAdaptor(QObject& object, QDBusConnection bus, Calls calls)
    : QDBusAbstractAdaptor(&object), bus_(std::move(bus)), calls_(std::move(calls)) {}

void ApplicationAdaptor::Activate(const QVariantMap& platformData, const QDBusMessage& message) {
    calls_.takePlatformData(platformData);
    answer(message, calls_.activate());
}

void ApplicationAdaptor::Open(const QStringList& uris, const QVariantMap& platformData,
                              const QDBusMessage& message) {
    calls_.takePlatformData(platformData);
    answer(message, calls_.open(uris));
}

void ApplicationAdaptor::ActivateAction(const QString& name, const QVariantList&,
                                        const QVariantMap& platformData, const QDBusMessage& message) {
    calls_.takePlatformData(platformData);
    answer(message, calls_.activateAction(name));
}

void ApplicationAdaptor::answer(const QDBusMessage& message, const Refusal& refusal) {
    if (!refusal.error.isEmpty()) {
        message.setDelayedReply(true);
        bus_.send(message.createErrorReply(refusal.error, refusal.reason));
    }
}

} // namespace cadora::dbus
