#include "auth/AccountChange.h"

#include "auth/KeychainStore.h"
#include "platform/Platform.h"

namespace cadora {

AccountChange::AccountChange() : userIdBefore_(KeychainStore::get(KeychainStore::Key::cadoraUserId)) {}

void AccountChange::report() const {
    const auto userId = KeychainStore::get(KeychainStore::Key::cadoraUserId);
    if (userIdBefore_ && userId && *userIdBefore_ != *userId) {
        Platform::current().systemLog.log(
            "[Cadora Helper] the sign-in replaced the account that was signed in");
    }
}

} // namespace cadora
