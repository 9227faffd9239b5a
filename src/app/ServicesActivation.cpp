#include "app/ServicesActivation.h"

#include "platform/Platform.h"

#include <cstdint>
#include <optional>
#include <utility>

namespace cadora {

namespace {

UserDefaults* pasteboardServerDefaults() {
    return Platform::current().userDefaults.suite(ServicesActivation::suiteName);
}

std::optional<PropertyDictionary> readStatus(UserDefaults& defaults) {
    auto value = defaults.object(ServicesActivation::statusKey);
    auto* status = value ? std::get_if<PropertyDictionary>(&*value) : nullptr;
    return status ? std::optional(std::move(*status)) : std::nullopt;
}

void writeStatus(UserDefaults& defaults, PropertyDictionary status) {
    defaults.set(ServicesActivation::statusKey, PropertyValue(std::move(status)));
    Platform::current().application.updateDynamicServices();
}

// Numbers rather than Booleans: that is how the pasteboard server itself writes them.
PropertyDictionary enabledEntry() {
    constexpr std::int64_t on = 1;
    return {{"enabled_context_menu", on},
            {"enabled_services_menu", on},
            {"presentation_modes", PropertyDictionary{{"ContextMenu", on}, {"ServicesMenu", on}}}};
}

} // namespace

void ServicesActivation::enableIfNeeded() {
    UserDefaults* defaults = pasteboardServerDefaults();
    if (!defaults) {
        return;
    }
    PropertyDictionary status = readStatus(*defaults).value_or(PropertyDictionary{});
    if (status.emplace(entryKey, enabledEntry()).second) {
        writeStatus(*defaults, std::move(status));
    }
}

void ServicesActivation::remove() {
    UserDefaults* defaults = pasteboardServerDefaults();
    if (!defaults) {
        return;
    }
    if (auto status = readStatus(*defaults)) {
        status->erase(entryKey);
        writeStatus(*defaults, *std::move(status));
    }
}

} // namespace cadora
