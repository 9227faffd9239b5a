#include "hosts/linux/bus/SingleInstance.h"

#include "hosts/linux/bus/DBusNames.h"
#include "hosts/linux/bus/SessionBus.h"

#include <chrono>
#include <cstdlib>

#include <sysexits.h>

namespace cadora {

namespace {

using Outcome = Forwarding::Outcome;

constexpr int claimAttempts = 10;

std::optional<int> endWith(int status, const std::string& problem, SystemLog& log) {
    log.log("[Cadora Helper] " + problem);
    return status;
}

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

std::optional<int> endByForwarding(const std::vector<std::string>& uris, SystemLog& log) {
    const Forwarding forwarding = forwardToRunningHelper(uris);
    switch (forwarding.outcome) {
    case Outcome::done:
        return EXIT_SUCCESS;
    case Outcome::nobodyRuns:
        return std::nullopt;
    case Outcome::refused:
        return endWith(EXIT_FAILURE, forwarding.reason, log);
    case Outcome::noAnswer:
        return endWith(EX_UNAVAILABLE, "the helper that runs did not answer: " + forwarding.reason, log);
    case Outcome::noSessionBus:
        return endWith(EX_UNAVAILABLE, "there is no session bus: " + forwarding.reason, log);
    }
    return EX_UNAVAILABLE;
}

std::optional<int> endUnlessClaimed(DBusApplication& application, const std::vector<std::string>& uris,
                                    SystemLog& log) {
    for (int attempt = 1; application.claimName() == DBusApplication::Claim::anotherRuns; ++attempt) {
        if (const auto status = endByForwarding(uris, log)) {
            return status;
        }
        if (attempt == claimAttempts) {
            return endWith(EX_UNAVAILABLE, "other starts come and go, and none stays", log);
        }
    }
    return std::nullopt;
}

} // namespace cadora
