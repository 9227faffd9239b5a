#pragma once

#include "base/MainActor.h"

#include <memory>

namespace cadora::test {

// The host's main thread in a test, which is this thread: its loop runs only while the test lets it.
class MainActorUnderTest {
public:
    virtual ~MainActorUnderTest() = default;

    virtual std::unique_ptr<MainActor> makeActor() = 0;
    // Runs what was posted before the call.
    virtual void runPending() = 0;
};

// Each test program that runs the contract defines it.
std::unique_ptr<MainActorUnderTest> makeMainActorUnderTest();

} // namespace cadora::test
