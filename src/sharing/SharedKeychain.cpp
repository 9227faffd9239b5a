#include "sharing/SharedKeychain.h"

#include <utility>

namespace cadora {

SharedKeychain::SharedKeychain(Keychain& keychain, std::shared_ptr<Rounds> rounds)
    : keychain_(keychain), rounds_(std::move(rounds)) {}

Keychain::Status SharedKeychain::copyMatching(const KeychainQuery& query, std::string* data) {
    CredentialReads* const reads = CredentialReads::current();
    if (reads == nullptr || data == nullptr) {
        return keychain_.copyMatching(query, data);
    }
    const CredentialReads::Read& read = reads->read(keychain_, query);
    if (read.status == success) {
        *data = read.data;
    }
    return read.status;
}

Keychain::Status SharedKeychain::update(const KeychainQuery& query, const std::string& data) {
    rounds_->reads().forget();
    return keychain_.update(query, data);
}

Keychain::Status SharedKeychain::add(const KeychainQuery& query, const std::string& data,
                                     KeychainAccessibility accessibility) {
    rounds_->reads().forget();
    return keychain_.add(query, data, accessibility);
}

Keychain::Status SharedKeychain::remove(const KeychainQuery& query) {
    rounds_->reads().forget();
    return keychain_.remove(query);
}

} // namespace cadora
