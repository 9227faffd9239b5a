#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

// The session bus through GIO: for what runs without an event loop, and before there is one.
namespace cadora::gio {

struct Free {
    void operator()(gchar* text) const { g_free(text); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
    void operator()(GDBusConnection* bus) const {
        g_dbus_connection_close_sync(bus, nullptr, nullptr);
        g_object_unref(bus);
    }
};
template <class T> using Owned = std::unique_ptr<T, Free>;

// A connection of the caller's own. Null when there is no bus, with the reason, for a person.
Owned<GDBusConnection> openSessionBus(std::string& reason);

// Frees the error and returns its message, without the name that a remote error begins with.
std::string takeReason(GError* error);

} // namespace cadora::gio
