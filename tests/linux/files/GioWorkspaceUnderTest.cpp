#include "contract/WorkspaceUnderTest.h"

#include "fakes/WaitingMainActor.h"
#include "hosts/linux/files/GioWorkspace.h"
#include "hosts/linux/system/ThreadBackgroundExecutor.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace cadora::test {

namespace {

// The session's home stands on a disk, where there is a Trash.
std::filesystem::path home() {
    const char* const home = std::getenv("HOME");
    if (home == nullptr) {
        throw std::runtime_error("HOME is not set");
    }
    return home;
}

class GioWorkspaceUnderTest : public WorkspaceUnderTest {
public:
    GioWorkspaceUnderTest() { std::filesystem::create_directories(folder_); }
    GioWorkspaceUnderTest(const GioWorkspaceUnderTest&) = delete;
    GioWorkspaceUnderTest& operator=(const GioWorkspaceUnderTest&) = delete;
    ~GioWorkspaceUnderTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    Workspace& workspace() override { return workspace_; }
    std::filesystem::path folder() override { return folder_; }
    bool runUntil(std::function<void()> job, const std::function<bool()>& condition) override {
        actor_.post(std::move(job));
        bool begun = false;
        actor_.post([&begun] { begun = true; });
        return actor_.runUntil([&] { return begun && condition(); });
    }

private:
    std::filesystem::path folder_ = home() / "Applications";
    WaitingMainActor actor_;
    ThreadBackgroundExecutor background_;
    GioWorkspace workspace_{background_};
};

} // namespace

std::unique_ptr<WorkspaceUnderTest> makeWorkspaceUnderTest() {
    return std::make_unique<GioWorkspaceUnderTest>();
}

} // namespace cadora::test
