#pragma once

#include "platform/Keychain.h"

#include <memory>

namespace cadora::test {

// The host's keychain, without any item of the services that the contract uses. None is left behind.
class KeychainUnderTest {
public:
    static constexpr const char* service = "com.norvelant.cadora.tests";
    static constexpr const char* otherService = "com.norvelant.cadora.tests.other";

    virtual ~KeychainUnderTest() = default;

    virtual Keychain& keychain() = 0;
    // False where a test program may only use another keychain than the helper itself.
    virtual bool useDataProtectionKeychain() const = 0;
};

// Each test program that runs the contract defines it.
std::unique_ptr<KeychainUnderTest> makeKeychainUnderTest();

} // namespace cadora::test
