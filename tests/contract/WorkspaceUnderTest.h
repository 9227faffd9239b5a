#pragma once

#include "platform/Workspace.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace cadora::test {

// The host's workspace, and a folder on a volume that has a Trash.
class WorkspaceUnderTest {
public:
    virtual ~WorkspaceUnderTest() = default;

    virtual Workspace& workspace() = 0;
    virtual std::filesystem::path folder() = 0;

    // Runs the job on the main actor, and that until the condition holds; false if it never does.
    virtual bool runUntil(std::function<void()> job, const std::function<bool()>& condition) = 0;
};

// Each test program that runs the contract defines it.
std::unique_ptr<WorkspaceUnderTest> makeWorkspaceUnderTest();

} // namespace cadora::test
