#pragma once

#include "platform/MediaFramework.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace cadora::test {

// A media framework with a file that is sound, one that is not, and a main actor to bring it to its ends.
class MediaFrameworkUnderTest {
public:
    virtual ~MediaFrameworkUnderTest() = default;

    virtual const char* name() const = 0;
    virtual MediaFramework& framework() = 0;
    virtual std::filesystem::path soundFile() = 0;
    // Whatever is asked of it fails.
    virtual std::filesystem::path otherFile() = 0;
    virtual std::filesystem::path output() = 0;

    // Runs the main actor until the condition holds; false if it never does.
    virtual bool runUntil(const std::function<bool()>& condition) = 0;
    virtual void runPosted() = 0;
};

// All that keep the contract: the program that runs it defines this.
std::vector<std::unique_ptr<MediaFrameworkUnderTest>> mediaFrameworksUnderTest();

// The one that reads real files.
std::unique_ptr<MediaFrameworkUnderTest> hostsMediaFramework();

} // namespace cadora::test
