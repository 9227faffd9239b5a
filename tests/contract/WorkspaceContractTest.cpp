// What every host's Trash must do. Run by a program that defines makeWorkspaceUnderTest(). What it throws
// away stays in the Trash of whoever runs it.

#include "contract/WorkspaceUnderTest.h"

#include <doctest/doctest.h>

#include <atomic>
#include <fstream>

namespace cadora::test {

namespace {

struct Fixture {
    std::unique_ptr<WorkspaceUnderTest> subject = makeWorkspaceUnderTest();

    // Throws the item away and waits until the handler was called; it is called once.
    void recycle(const std::filesystem::path& item) {
        std::atomic<int> calls = 0;
        REQUIRE(subject->runUntil([&] { subject->workspace().recycle(item, [&calls] { ++calls; }); },
                                  [&] { return calls != 0; }));
        CHECK(calls == 1);
    }
};

} // namespace

TEST_CASE("what is moved to the Trash is gone from where it was, with all that is in it") {
    Fixture fixture;
    const auto bundle = fixture.subject->folder() / "Cadora test.app";
    std::filesystem::create_directories(bundle / "Contents");
    std::ofstream(bundle / "Contents/Info.plist") << "<plist/>";
    const auto neighbour = fixture.subject->folder() / "kept";
    std::ofstream(neighbour) << "kept";
    fixture.recycle(bundle);
    CHECK_FALSE(std::filesystem::exists(std::filesystem::symlink_status(bundle)));
    CHECK(std::filesystem::exists(neighbour));
}

TEST_CASE("moving what isn't there to the Trash ends as well") {
    Fixture fixture;
    fixture.recycle(fixture.subject->folder() / "none.app");
}

} // namespace cadora::test
