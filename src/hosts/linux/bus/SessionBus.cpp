#include "hosts/linux/bus/SessionBus.h"

namespace cadora::gio {

Owned<GDBusConnection> openSessionBus(std::string& reason) {
    GError* error = nullptr;
    const Owned<gchar> address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error));
    if (!address) {
        reason = takeReason(error);
        return nullptr;
    }
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): the values are bits
    const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    Owned<GDBusConnection> bus(
        g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr, nullptr, &error));
    if (!bus) {
        reason = takeReason(error).append(" (").append(address.get()).append(")");
    }
    return bus;
}

std::string takeReason(GError* error) {
    const Owned<GError> owned(error);
    g_dbus_error_strip_remote_error(error);
    return error->message;
}

} // namespace cadora::gio
