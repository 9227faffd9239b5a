#pragma once

#include "platform/UserDefaults.h"

#include <map>
#include <string>
#include <utility>

namespace cadora::test {

class FakeUserDefaults : public UserDefaults {
public:
    std::map<std::string, PropertyValue> values;

    std::optional<PropertyValue> object(const std::string& key) override {
        const auto found = values.find(key);
        return found == values.end() ? std::nullopt : std::optional(found->second);
    }

    void set(const std::string& key, std::optional<PropertyValue> value) override {
        values.erase(key);
        if (value) {
            values.emplace(key, *std::move(value));
        }
    }
};

} // namespace cadora::test
