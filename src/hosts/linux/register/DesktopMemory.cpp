#include "hosts/linux/register/DesktopMemory.h"

#include "hosts/linux/bus/SessionBus.h"

#include <gio/gio.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace cadora {

namespace {

struct Free {
    void operator()(GSettings* settings) const { g_object_unref(settings); }
    void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
    void operator()(gchar** texts) const { g_strfreev(texts); }
};
template <class T> using Owned = std::unique_ptr<T, Free>;

constexpr std::string_view statusItem = "Cadora Helper";

gio::Owned<GVariant> callPanelSettings(GDBusConnection& bus, const char* method, GVariant* arguments) {
    return gio::Owned<GVariant>(g_dbus_connection_call_sync(
        &bus, "org.xfce.Xfconf", "/org/xfce/Xfconf", "org.xfce.Xfconf", method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr));
}

// Takes the item from one list of the panel's settings.
void forgetItem(GDBusConnection& bus, const char* channel, const char* property, GVariant* list) {
    GVariantBuilder kept;
    g_variant_builder_init(&kept, G_VARIANT_TYPE("av"));
    gsize count = 0;
    GVariantIter items;
    g_variant_iter_init(&items, list);
    while (GVariant* const taken = g_variant_iter_next_value(&items)) {
        const gio::Owned<GVariant> item(taken);
        const gio::Owned<GVariant> text(g_variant_get_variant(item.get()));
        const bool isText = g_variant_is_of_type(text.get(), G_VARIANT_TYPE_STRING) != FALSE;
        if (!isText || g_variant_get_string(text.get(), nullptr) != statusItem) {
            g_variant_builder_add_value(&kept, item.get());
            ++count;
        }
    }
    const gio::Owned<GVariant> rest(g_variant_ref_sink(g_variant_builder_end(&kept)));
    if (count == 0) {
        callPanelSettings(bus, "ResetProperty", g_variant_new("(ssb)", channel, property, FALSE));
    } else if (count != g_variant_n_children(list)) {
        callPanelSettings(bus, "SetProperty", g_variant_new("(ssv)", channel, property, rest.get()));
    }
}

} // namespace

void forgetNemoSwitch() {
    constexpr const char* key = "disabled-actions";
    constexpr std::string_view entry = "cadora-helper.nemo_action";
    GSettingsSchemaSource* const source = g_settings_schema_source_get_default();
    const Owned<GSettingsSchema> schema(
        source == nullptr ? nullptr : g_settings_schema_source_lookup(source, "org.nemo.plugins", TRUE));
    if (!schema || g_settings_schema_has_key(schema.get(), key) == FALSE) {
        return;
    }
    const Owned<GSettings> settings(g_settings_new("org.nemo.plugins"));
    const Owned<gchar*> before(g_settings_get_strv(settings.get(), key));
    std::vector<const char*> kept;
    gchar** text = before.get();
    for (; *text != nullptr; ++text) {
        if (*text != entry) {
            kept.push_back(*text);
        }
    }
    if (kept.size() == static_cast<std::size_t>(text - before.get())) {
        return;
    }
    if (kept.empty()) {
        g_settings_reset(settings.get(), key);
    } else {
        kept.push_back(nullptr);
        g_settings_set_strv(settings.get(), key, kept.data());
    }
    g_settings_sync();
}

void forgetPanelItem() {
    constexpr const char* channel = "xfce4-panel";
    std::string reason;
    const auto bus = gio::openSessionBus(reason);
    if (!bus) {
        return;
    }
    const auto answer =
        callPanelSettings(*bus, "GetAllProperties", g_variant_new("(ss)", channel, "/plugins"));
    if (!answer || g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(a{sv})")) == FALSE) {
        return;
    }
    const gio::Owned<GVariant> properties(g_variant_get_child_value(answer.get(), 0));
    GVariantIter iterator;
    g_variant_iter_init(&iterator, properties.get());
    const gchar* property = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_next(&iterator, "{&sv}", &property, &value) != FALSE) {
        const gio::Owned<GVariant> list(value);
        const std::string_view name = property;
        if ((name.ends_with("/known-items") || name.ends_with("/hidden-items")) &&
            g_variant_is_of_type(value, G_VARIANT_TYPE("av")) != FALSE) {
            forgetItem(*bus, channel, property, value);
        }
    }
}

} // namespace cadora
