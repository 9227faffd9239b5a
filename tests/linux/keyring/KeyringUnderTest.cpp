#include "contract/KeychainUnderTest.h"

#include "hosts/linux/keyring/LibsecretKeychain.h"
#include "linux/keyring/Keyring.h"

#include <chrono>

namespace cadora::test {

namespace {

class KeyringUnderTest : public KeychainUnderTest {
public:
    Keychain& keychain() override { return keychain_; }
    bool useDataProtectionKeychain() const override { return true; }

private:
    Keyring keyring_;
    LibsecretKeychain keychain_{std::chrono::minutes(1)};
};

} // namespace

std::unique_ptr<KeychainUnderTest> makeKeychainUnderTest() {
    return std::make_unique<KeyringUnderTest>();
}

} // namespace cadora::test
