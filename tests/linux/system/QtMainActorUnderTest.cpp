#include "contract/MainActorUnderTest.h"

#include "hosts/linux/system/QtMainActor.h"
#include "linux/EventLoop.h"

namespace cadora::test {

namespace {

class QtMainActorUnderTest : public MainActorUnderTest {
public:
    std::unique_ptr<MainActor> makeActor() override { return std::make_unique<QtMainActor>(); }
    void runPending() override { loop_.runPending(); }

private:
    EventLoop loop_;
};

} // namespace

std::unique_ptr<MainActorUnderTest> makeMainActorUnderTest() {
    return std::make_unique<QtMainActorUnderTest>();
}

} // namespace cadora::test
