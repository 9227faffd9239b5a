#pragma once

#include "platform/Keychain.h"
#include "sharing/Rounds.h"

#include <memory>

namespace cadora {

// A keychain that those who work together ask once (CredentialReads); for everybody else, and for every
// change, it is the keychain itself. After a change made here, nothing that was read before it is given out
// on the main thread.
class SharedKeychain : public Keychain {
public:
    SharedKeychain(Keychain& keychain, std::shared_ptr<Rounds> rounds);

    Status copyMatching(const KeychainQuery& query, std::string* data) override;
    Status update(const KeychainQuery& query, const std::string& data) override;
    Status add(const KeychainQuery& query, const std::string& data,
               KeychainAccessibility accessibility) override;
    Status remove(const KeychainQuery& query) override;

private:
    Keychain& keychain_;
    std::shared_ptr<Rounds> rounds_;
};

} // namespace cadora
