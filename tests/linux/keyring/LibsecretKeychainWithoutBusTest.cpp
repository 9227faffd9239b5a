#include "hosts/linux/keyring/LibsecretKeychain.h"

#include <doctest/doctest.h>

#include <chrono>
#include <cstdlib>

namespace cadora::test {

// In another program than the tests with a keyring: GLib keeps to the first session bus that it finds.
TEST_CASE("without a session bus every call of the keychain is a status") {
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    LibsecretKeychain keychain(std::chrono::minutes(1));
    const KeychainQuery token{"com.norvelant.cadora.mac", "cadoraToken"};
    CHECK(keychain.copyMatching(token, nullptr) == LibsecretKeychain::notAvailable);
    CHECK(keychain.add(token, "x", KeychainAccessibility::afterFirstUnlock) ==
          LibsecretKeychain::notAvailable);
    CHECK(keychain.update(token, "x") == LibsecretKeychain::notAvailable);
    CHECK(keychain.remove(token) == LibsecretKeychain::notAvailable);
}

} // namespace cadora::test
