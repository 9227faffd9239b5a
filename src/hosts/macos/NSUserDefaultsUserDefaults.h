#pragma once

#include "platform/UserDefaults.h"

#include <map>
#include <memory>
#include <mutex>

#import <Foundation/Foundation.h>

namespace cadora {

// The user's defaults, and suites of them. Values that no PropertyValue can hold, such as the arrays and
// dates in other programs' entries, read as absent; a dictionary that is written back without them keeps
// them.
class NSUserDefaultsUserDefaults : public UserDefaults {
public:
    // The program's own domain and those that it inherits from.
    NSUserDefaultsUserDefaults();

    std::optional<PropertyValue> object(const std::string& key) override;
    void set(const std::string& key, std::optional<PropertyValue> value) override;
    UserDefaults* suite(const std::string& suiteName) override;

private:
    explicit NSUserDefaultsUserDefaults(NSUserDefaults* defaults);

    NSUserDefaults* defaults_;
    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<NSUserDefaultsUserDefaults>> suites_;
};

} // namespace cadora
