#pragma once

#include "platform/UserDefaults.h"

#include <memory>

namespace cadora::test {

// User defaults of the host's that are empty at first and that nobody else uses.
class UserDefaultsUnderTest {
public:
    virtual ~UserDefaultsUnderTest() = default;

    virtual UserDefaults& defaults() = 0;
};

// Each test program that runs the contract defines it.
std::unique_ptr<UserDefaultsUnderTest> makeUserDefaultsUnderTest();

} // namespace cadora::test
