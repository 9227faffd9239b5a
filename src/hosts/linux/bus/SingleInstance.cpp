#include "hosts/linux/bus/SingleInstance.h"

#include "hosts/linux/bus/DBusNames.h"
#include "hosts/linux/bus/SessionBus.h"

#include <chrono>

namespace cadora {

namespace {

using Outcome = Forwarding::Outcome;

Forwarding failed(Outcome outcome, GError* error) {
    return {outcome, gio::takeReason(error)};
}

Outcome outcomeOf(const GError* error) {
    // A helper that ends in the middle of the call leaves its request to the next one.
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) != FALSE ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) != FALSE ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) != FALSE) {
        return Outcome::nobodyRuns;
    }
    const gio::Owned<gchar> name(g_dbus_error_get_remote_error(error));
    return name && std::string(name.get()) == dbus::requestRefused ? Outcome::refused : Outcome::noAnswer;
}

} // namespace

Forwarding forwardToRunningHelper(const std::vector<std::string>& uris) {
    std::string reason;
    const gio::Owned<GDBusConnection> bus = gio::openSessionBus(reason);
    if (!bus) {
        return {Outcome::noSessionBus, reason};
    }

    GError* error = nullptr;
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
    const gio::Owned<GVariant> answer(g_dbus_connection_call_sync(
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
