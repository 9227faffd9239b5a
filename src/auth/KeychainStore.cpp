#include "auth/KeychainStore.h"

#include "base/UTF8.h"
#include "platform/Platform.h"

namespace cadora {

namespace {

KeychainQuery baseQuery(const std::string& account) {
    return {"com.norvelant.cadora.mac", account, true};
}

} // namespace

std::optional<std::string> KeychainStore::get(const std::string& account) {
    std::string data;
    const Keychain::Status status = Platform::current().keychain.copyMatching(baseQuery(account), &data);
    if (status != Keychain::success || !isValidUTF8(data)) {
        return std::nullopt;
    }
    return data;
}

bool KeychainStore::set(const std::optional<std::string>& value, const std::string& account) {
    Keychain& keychain = Platform::current().keychain;
    const KeychainQuery query = baseQuery(account);
    if (!value || !isValidUTF8(*value)) {
        const Keychain::Status status = keychain.remove(query);
        return status == Keychain::success || status == Keychain::itemNotFound;
    }
    if (keychain.copyMatching(query, nullptr) == Keychain::success) {
        return keychain.update(query, *value) == Keychain::success;
    }
    return keychain.add(query, *value, KeychainAccessibility::afterFirstUnlock) == Keychain::success;
}

} // namespace cadora
