#pragma once

#include "platform/Keychain.h"

namespace cadora {

// Generic-password items through the SecItem calls. In the data-protection keychain they need the program to
// be signed with its application identifier and a keychain access group; without these every call ends with
// errSecMissingEntitlement (-34018).
class SecItemKeychain : public Keychain {
public:
    Status copyMatching(const KeychainQuery& query, std::string* data) override;
    Status update(const KeychainQuery& query, const std::string& data) override;
    Status add(const KeychainQuery& query, const std::string& data,
               KeychainAccessibility accessibility) override;
    Status remove(const KeychainQuery& query) override;
};

} // namespace cadora
