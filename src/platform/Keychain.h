#pragma once

#include <cstdint>
#include <string>

namespace cadora {

// Which generic-password item is meant. An item is found by service and account alone.
struct KeychainQuery {
    std::string service;
    std::string account;
    // The data-protection keychain, not the legacy file-based one: a delete from the latter fails silently
    // in a background agent. A host with one keychain only has nothing to choose.
    bool useDataProtectionKeychain = true;
};

// When the item can be read.
enum class KeychainAccessibility { afterFirstUnlock };

// The system's store of secrets. Calls are synchronous and may come from any thread, the main thread too, so
// an adapter answers within a bounded time: a keychain that is locked, missing or dead is a status, not a
// wait, and asks the user nothing.
class Keychain {
public:
    using Status = std::int32_t;
    static constexpr Status success = 0;
    static constexpr Status itemNotFound = -25300;

    virtual ~Keychain() = default;

    // Looks the item up; its bytes go to `data` unless that is null.
    virtual Status copyMatching(const KeychainQuery& query, std::string* data) = 0;

    // Replaces the bytes of an item that exists.
    virtual Status update(const KeychainQuery& query, const std::string& data) = 0;

    // Makes an item; fails if it exists.
    virtual Status add(const KeychainQuery& query, const std::string& data,
                       KeychainAccessibility accessibility) = 0;

    // Removes the item.
    virtual Status remove(const KeychainQuery& query) = 0;
};

} // namespace cadora
