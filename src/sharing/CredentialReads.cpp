#include "sharing/CredentialReads.h"

#include <utility>

namespace cadora {

namespace {

thread_local CredentialReads* currentReads = nullptr;

} // namespace

CredentialReads::Scope::Scope(CredentialReads& reads) : outer_(std::exchange(currentReads, &reads)) {}

CredentialReads::Scope::~Scope() {
    currentReads = outer_;
}

CredentialReads* CredentialReads::current() {
    return currentReads;
}

const CredentialReads::Read& CredentialReads::read(Keychain& keychain, const KeychainQuery& query) {
    const auto [entry, isNew] =
        reads_.try_emplace({query.service, query.account, query.useDataProtectionKeychain});
    if (isNew) {
        entry->second.status = keychain.copyMatching(query, &entry->second.data);
    }
    return entry->second;
}

} // namespace cadora
