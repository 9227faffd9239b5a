#include "hosts/linux/SingleInstance.h"

#include "hosts/linux/DBusAdaptors.h"

#include <gio/gio.h>

#include <chrono>
#include <memory>

namespace cadora {

namespace {

using Outcome = Forwarding::Outcome;

struct Free {
    void operator()(gchar* text) const { g_free(text); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(GDBusConnection* bus) const {
        g_dbus_connection_close_sync(bus, nullptr, nullptr);
        g_object_unref(bus);
    }
};
template <class T> using Owned = std::unique_ptr<T, Free>;

Forwarding failed(Outcome outcome, GError* error) {
    const Owned<GError> owned(error);
    g_dbus_error_strip_remote_error(error);
    return {outcome, error->message};
}

Outcome outcomeOf(const GError* error) {
    // A helper that ends in the middle of the call leaves its request to the next one.
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) != FALSE ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) != FALSE ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) != FALSE) {
        return Outcome::nobodyRuns;
    }
    const Owned<gchar> name(g_dbus_error_get_remote_error(error));
    return name && std::string(name.get()) == dbus::requestRefused ? Outcome::refused : Outcome::noAnswer;
}

} // namespace

Forwarding forwardToRunningHelper(const std::vector<std::string>& uris) {
    GError* error = nullptr;
    const Owned<gchar> address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error));
    if (!address) {
        return failed(Outcome::noSessionBus, error);
    }
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): the values are bits
    const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    const Owned<GDBusConnection> bus(
        g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr, nullptr, &error));
    if (!bus) {
        Forwarding forwarding = failed(Outcome::noSessionBus, error);
        forwarding.reason.append(" (").append(address.get()).append(")");
        return forwarding;
    }

    GVariantBuilder platformData;
    g_variant_builder_init(&platformData, G_VARIANT_TYPE("a{sv}"));
    GVariant* arguments = nullptr;
    if (uris.empty()) {
        arguments = g_variant_new("(a{sv})", &platformData);
    } else {
        GVariantBuilder list;
        g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
        for (const std::string& uri : uris) {
            g_variant_builder_add(&list, "s", uri.c_str());
        }
        arguments = g_variant_new("(asa{sv})", &list, &platformData);
    }
    constexpr std::chrono::milliseconds patience = std::chrono::minutes(2);
    const Owned<GVariant> answer(g_dbus_connection_call_sync(
        bus.get(), dbus::busName, dbus::objectPath, dbus::applicationInterface,
        uris.empty() ? "Activate" : "Open", arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
        static_cast<int>(patience.count()), nullptr, &error));
    if (answer) {
        return {Outcome::done, {}};
    }
    const Outcome outcome = outcomeOf(error);
    Forwarding forwarding = failed(outcome, error);
    if (outcome == Outcome::nobodyRuns) {
        forwarding.reason.clear();
    }
    return forwarding;
}

} // namespace cadora
