#pragma once

#include "fakes/Trace.h"
#include "platform/UserDefaults.h"

#include <map>
#include <memory>
#include <string>
#include <utility>

namespace cadora::test {

class FakeUserDefaults : public UserDefaults {
public:
    Trace trace;
    std::map<std::string, PropertyValue> values;
    // The other domains by name; one that isn't here can't be opened.
    std::map<std::string, std::unique_ptr<FakeUserDefaults>> suites;

    std::optional<PropertyValue> object(const std::string& key) override {
        const auto found = values.find(key);
        return found == values.end() ? std::nullopt : std::optional(found->second);
    }

    void set(const std::string& key, std::optional<PropertyValue> value) override {
        trace.add("set " + key);
        values.erase(key);
        if (value) {
            values.emplace(key, *std::move(value));
        }
    }

    UserDefaults* suite(const std::string& suiteName) override {
        const auto found = suites.find(suiteName);
        return found == suites.end() ? nullptr : found->second.get();
    }
};

} // namespace cadora::test
