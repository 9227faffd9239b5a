#include "hosts/linux/bus/SingleInstance.h"

#include "hosts/linux/bus/DBusNames.h"
#include "hosts/linux/bus/SessionBus.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <utility>

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
    const gio::Owned<gchar> remote(g_dbus_error_get_remote_error(error));
    const std::string name = remote ? remote.get() : "";
    if (name == dbus::noDisplay) {
        return Outcome::noDisplay;
    }
    return name == dbus::requestRefused ? Outcome::refused : Outcome::noAnswer;
}

// What the desktop gave this process to come to the front with.
GVariant* platformData() {
    GVariantBuilder entries;
    g_variant_builder_init(&entries, G_VARIANT_TYPE("a{sv}"));
    for (const auto& [variable, key] : {std::pair("XDG_ACTIVATION_TOKEN", dbus::activationToken),
                                        std::pair("DESKTOP_STARTUP_ID", dbus::startupID)}) {
        const char* const value = std::getenv(variable);
        if (value != nullptr && *value != '\0' && g_utf8_validate(value, -1, nullptr) != FALSE) {
            g_variant_builder_add(&entries, "{sv}", key, g_variant_new_string(value));
        }
    }
    return g_variant_builder_end(&entries);
}

GVariant* arrayOf(const std::vector<std::string>& uris) {
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
    for (const std::string& uri : uris) {
        g_variant_builder_add(&list, "s", uri.c_str());
    }
    return g_variant_builder_end(&list);
}

bool callHelper(GDBusConnection& bus, const char* method, GVariant* arguments, GError** error) {
    constexpr std::chrono::milliseconds patience = std::chrono::minutes(2);
    const gio::Owned<GVariant> answer(g_dbus_connection_call_sync(
        &bus, dbus::busName, dbus::objectPath, dbus::applicationInterface, method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, static_cast<int>(patience.count()), nullptr, error));
    return answer != nullptr;
}

bool waitUntilNobodyRuns(GDBusConnection& bus) {
    constexpr std::chrono::seconds patience(30);
    const std::unique_ptr<GMainContext, decltype(&g_main_context_unref)> context(g_main_context_new(),
                                                                                 &g_main_context_unref);
    g_main_context_push_thread_default(context.get());
    struct Wait {
        gio::Owned<GMainLoop> loop;
        bool isTooLong = false;
    } wait{gio::Owned<GMainLoop>(g_main_loop_new(context.get(), FALSE))};
    const guint watch = g_bus_watch_name_on_connection(
        &bus, dbus::busName, G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr,
        [](GDBusConnection*, const char*, gpointer data) {
            g_main_loop_quit(static_cast<Wait*>(data)->loop.get());
        },
        &wait, nullptr);
    const std::unique_ptr<GSource, decltype(&g_source_unref)> timeout(
        g_timeout_source_new_seconds(static_cast<guint>(patience.count())), &g_source_unref);
    g_source_set_callback(
        timeout.get(),
        [](gpointer data) -> gboolean {
            auto& late = *static_cast<Wait*>(data);
            late.isTooLong = true;
            g_main_loop_quit(late.loop.get());
            return G_SOURCE_REMOVE;
        },
        &wait, nullptr);
    g_source_attach(timeout.get(), context.get());
    g_main_loop_run(wait.loop.get());
    g_source_destroy(timeout.get());
    g_bus_unwatch_name(watch);
    g_main_context_pop_thread_default(context.get());
    return !wait.isTooLong;
}

} // namespace

Forwarding forwardToRunningHelper(const std::vector<std::string>& uris) {
    std::string reason;
    const gio::Owned<GDBusConnection> bus = gio::openSessionBus(reason);
    if (!bus) {
        return {Outcome::noSessionBus, reason};
    }

    GError* error = nullptr;
    GVariant* const arguments = uris.empty() ? g_variant_new("(@a{sv})", platformData())
                                             : g_variant_new("(@as@a{sv})", arrayOf(uris), platformData());
    if (callHelper(*bus, uris.empty() ? "Activate" : "Open", arguments, &error)) {
        return {Outcome::done, {}};
    }
    const Outcome outcome = outcomeOf(error);
    Forwarding forwarding = failed(outcome, error);
    if (outcome == Outcome::nobodyRuns) {
        forwarding.reason.clear();
    }
    return forwarding;
}

std::string takeOverFromRunningHelper() {
    std::string reason;
    const auto bus = gio::openSessionBus(reason);
    if (!bus) {
        return reason;
    }
    GError* error = nullptr;
    GVariant* const arguments = g_variant_new("(sav@a{sv})", dbus::giveWayAction, nullptr, platformData());
    if (!callHelper(*bus, "ActivateAction", arguments, &error)) {
        const Outcome outcome = outcomeOf(error);
        reason = gio::takeReason(error);
        return outcome == Outcome::nobodyRuns ? std::string() : reason;
    }
    return waitUntilNobodyRuns(*bus) ? std::string() : "it did not end";
}

std::optional<int> endByForwarding(const Start& start, SystemLog& log) {
    if (start.isForService && start.uris.empty()) {
        return std::nullopt;
    }
    const Forwarding forwarding = forwardToRunningHelper(start.uris);
    switch (forwarding.outcome) {
    case Outcome::noDisplay:
        if (!start.hasDisplay()) {
            return EXIT_SUCCESS;
        }
        if (const std::string problem = takeOverFromRunningHelper(); !problem.empty()) {
            return endWith(EX_UNAVAILABLE,
                           "the helper that runs without a display did not give way: " + problem, log);
        }
        return std::nullopt;
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

std::optional<int> endUnlessClaimed(DBusApplication& application, const Start& start, SystemLog& log) {
    for (int attempt = 1; application.claimName() == DBusApplication::Claim::anotherRuns; ++attempt) {
        if (start.isForService && start.uris.empty()) {
            return EXIT_SUCCESS;
        }
        if (const auto status = endByForwarding(start, log)) {
            return status;
        }
        if (attempt == claimAttempts) {
            return endWith(EX_UNAVAILABLE, "other starts come and go, and none stays", log);
        }
    }
    return std::nullopt;
}

} // namespace cadora
