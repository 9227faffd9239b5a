#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace cadora {

struct PropertyValue;
using PropertyDictionary = std::map<std::string, PropertyValue>;

// A value that the user defaults can hold.
struct PropertyValue : std::variant<bool, std::int64_t, double, std::string, PropertyDictionary> {
    using variant::variant;
};

// The user's preferences: one domain of keys and values that outlives the process. A value that can't be read
// is absent; a write that fails is dropped. Any thread.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    virtual std::optional<PropertyValue> object(const std::string& key) = 0;

    // Absent removes the key.
    virtual void set(const std::string& key, std::optional<PropertyValue> value) = 0;

    // Another domain by its name, owned by this one; null when it can't be opened.
    virtual UserDefaults* suite(const std::string& suiteName) = 0;

    // Absent when the value is missing or not a string.
    std::optional<std::string> string(const std::string& key) {
        const auto value = object(key);
        const auto* text = value ? std::get_if<std::string>(&*value) : nullptr;
        return text ? std::optional(*text) : std::nullopt;
    }

    // False when the value is missing or not a Boolean.
    bool boolean(const std::string& key) {
        const auto value = object(key);
        const auto* flag = value ? std::get_if<bool>(&*value) : nullptr;
        return flag && *flag;
    }
};

} // namespace cadora
