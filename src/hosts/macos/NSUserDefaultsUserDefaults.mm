#include "hosts/macos/NSUserDefaultsUserDefaults.h"

#include "hosts/macos/FoundationText.h"

#include <type_traits>
#include <utility>

#import <CoreFoundation/CoreFoundation.h>

namespace cadora {

namespace {

std::optional<PropertyValue> propertyValue(id object);

PropertyValue propertyNumber(NSNumber* number) {
    const auto reference = (__bridge CFNumberRef)number;
    if (CFGetTypeID(reference) == CFBooleanGetTypeID()) {
        return static_cast<bool>(number.boolValue);
    }
    if (CFNumberIsFloatType(reference)) {
        return number.doubleValue;
    }
    return static_cast<std::int64_t>(number.longLongValue);
}

PropertyDictionary propertyDictionary(NSDictionary* dictionary) {
    PropertyDictionary result;
    for (id key in dictionary) {
        if (![key isKindOfClass:[NSString class]]) {
            continue;
        }
        if (auto value = propertyValue(dictionary[key])) {
            result.emplace(stdString(static_cast<NSString*>(key)), std::move(*value));
        }
    }
    return result;
}

std::optional<PropertyValue> propertyValue(id object) {
    if ([object isKindOfClass:[NSString class]]) {
        return stdString(static_cast<NSString*>(object));
    }
    if ([object isKindOfClass:[NSNumber class]]) {
        return propertyNumber(object);
    }
    if ([object isKindOfClass:[NSDictionary class]]) {
        return propertyDictionary(object);
    }
    return std::nullopt;
}

id propertyList(const PropertyValue& value, id old);

// What `old` has and a PropertyDictionary can't show stays as it is.
NSDictionary* propertyList(const PropertyDictionary& dictionary, id old) {
    NSMutableDictionary<NSString*, id>* const result = [NSMutableDictionary dictionary];
    NSDictionary* const before = [old isKindOfClass:[NSDictionary class]] ? old : nil;
    for (id key in before) {
        if (!propertyValue(before[key])) {
            result[key] = before[key];
        }
    }
    for (const auto& [key, value] : dictionary) {
        NSString* const name = nsString(key);
        result[name] = propertyList(value, before[name]);
    }
    return result;
}

id propertyList(const PropertyValue& value, id old) {
    return std::visit(
        [old](const auto& alternative) -> id {
            using T = std::decay_t<decltype(alternative)>;
            if constexpr (std::is_same_v<T, bool>) {
                return alternative ? @YES : @NO;
            } else if constexpr (std::is_same_v<T, std::string>) {
                return nsString(alternative);
            } else if constexpr (std::is_same_v<T, PropertyDictionary>) {
                return propertyList(alternative, old);
            } else {
                return @(alternative);
            }
        },
        static_cast<const PropertyValue::variant&>(value));
}

} // namespace

NSUserDefaultsUserDefaults::NSUserDefaultsUserDefaults()
    : NSUserDefaultsUserDefaults([NSUserDefaults standardUserDefaults]) {}

NSUserDefaultsUserDefaults::NSUserDefaultsUserDefaults(NSUserDefaults* defaults) : defaults_(defaults) {}

std::optional<PropertyValue> NSUserDefaultsUserDefaults::object(const std::string& key) {
    return propertyValue([defaults_ objectForKey:nsString(key)]);
}

void NSUserDefaultsUserDefaults::set(const std::string& key, std::optional<PropertyValue> value) {
    NSString* const name = nsString(key);
    if (value) {
        [defaults_ setObject:propertyList(*value, [defaults_ objectForKey:name]) forKey:name];
    } else {
        [defaults_ removeObjectForKey:name];
    }
}

UserDefaults* NSUserDefaultsUserDefaults::suite(const std::string& suiteName) {
    const std::lock_guard guard(mutex_);
    auto& suite = suites_[suiteName];
    if (!suite) {
        NSUserDefaults* const defaults = [[NSUserDefaults alloc] initWithSuiteName:nsString(suiteName)];
        if (defaults == nil) {
            return nullptr;
        }
        suite.reset(new NSUserDefaultsUserDefaults(defaults));
    }
    return suite.get();
}

} // namespace cadora
