// What every host's main actor must do. Run by a program that defines makeMainActorUnderTest().

#include "contract/MainActorUnderTest.h"

#include "base/Completion.h"
#include "fakes/ManualMainActor.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace cadora::test {

namespace {

// The actor, and a way to let it do all that is due.
struct CrankedByHand {
    std::unique_ptr<ManualMainActor> actor = std::make_unique<ManualMainActor>();
    void runPending() { actor->runUntilIdle(); }
};

struct OnTheHost {
    std::unique_ptr<MainActorUnderTest> loop = makeMainActorUnderTest();
    std::unique_ptr<MainActor> actor = loop->makeActor();
    void runPending() { loop->runPending(); }
};

Task<void> note(std::vector<std::string>& trace, std::string text) {
    trace.push_back(std::move(text));
    co_return;
}

using Release = Completion<std::monostate>;

Task<void> waitFor(MainActor& actor, std::shared_ptr<Release> release, std::shared_ptr<bool> resumed) {
    OperationAwaiter<std::monostate> waiting(actor, [release](Release completion) -> CancelAction {
        *release = std::move(completion);
        return nullptr;
    });
    co_await waiting;
    *resumed = true;
}

} // namespace

} // namespace cadora::test

TYPE_TO_STRING_AS("cranked by hand", cadora::test::CrankedByHand);
TYPE_TO_STRING_AS("on the host", cadora::test::OnTheHost);

namespace cadora::test {

TEST_CASE_TEMPLATE("jobs run in the order in which they were posted", Subject, CrankedByHand, OnTheHost) {
    Subject subject;
    std::vector<int> trace;
    for (int i = 0; i < 5; ++i) {
        subject.actor->post([&trace, i] { trace.push_back(i); });
    }
    subject.runPending();
    CHECK(trace == std::vector<int>{0, 1, 2, 3, 4});
}

TEST_CASE_TEMPLATE("a job never runs inside post, also when a job posts it", Subject, CrankedByHand,
                   OnTheHost) {
    Subject subject;
    std::vector<std::string> trace;
    subject.actor->post([&] {
        trace.emplace_back("first begins");
        subject.actor->post([&] { trace.emplace_back("posted by the first"); });
        trace.emplace_back("first ends");
    });
    subject.actor->post([&] { trace.emplace_back("second"); });
    CHECK(trace.empty());
    subject.runPending();
    subject.runPending();
    CHECK(trace == std::vector<std::string>{"first begins", "first ends", "second", "posted by the first"});
}

TEST_CASE_TEMPLATE("jobs that another thread posts run on the actor's own thread, in order", Subject,
                   CrankedByHand, OnTheHost) {
    Subject subject;
    std::vector<int> trace;
    bool elsewhere = false;
    const auto here = std::this_thread::get_id();
    std::thread([&] {
        for (int i = 0; i < 1000; ++i) {
            subject.actor->post([&, i] {
                trace.push_back(i);
                elsewhere = elsewhere || std::this_thread::get_id() != here;
            });
        }
    }).join();
    CHECK(trace.empty());
    subject.runPending();
    CHECK(trace.size() == 1000);
    CHECK(std::is_sorted(trace.begin(), trace.end()));
    CHECK_FALSE(elsewhere);
}

TEST_CASE_TEMPLATE("a started task waits for its turn", Subject, CrankedByHand, OnTheHost) {
    Subject subject;
    std::vector<std::string> trace;
    subject.actor->post([&] {
        subject.actor->start(note(trace, "task one"));
        subject.actor->start(note(trace, "task two"));
        trace.emplace_back("turn ends");
    });
    subject.runPending();
    subject.runPending();
    CHECK(trace == std::vector<std::string>{"turn ends", "task one", "task two"});
}

TEST_CASE_TEMPLATE("destroying the actor ends the tasks that wait, and late completions find nobody", Subject,
                   CrankedByHand, OnTheHost) {
    Subject subject;
    const auto release = std::make_shared<Release>();
    const auto resumed = std::make_shared<bool>(false);
    subject.actor->start(waitFor(*subject.actor, release, resumed));
    subject.runPending();
    REQUIRE(*release);
    CHECK(resumed.use_count() == 2);
    subject.actor.reset();
    CHECK(resumed.use_count() == 1);
    (*release)(std::monostate());
    CHECK_FALSE(*resumed);
}

TEST_CASE_TEMPLATE("destroying the actor drops the jobs that have not begun, with all that they hold",
                   Subject, CrankedByHand, OnTheHost) {
    Subject subject;
    const auto held = std::make_shared<bool>(false);
    subject.actor->post([held] { *held = true; });
    subject.actor.reset();
    CHECK(held.use_count() == 1);
    CHECK_FALSE(*held);
}

} // namespace cadora::test
