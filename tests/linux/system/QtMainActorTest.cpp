#include "hosts/linux/system/QtMainActor.h"

#include "linux/EventLoop.h"

#include "base/Completion.h"

#include <QEventLoop>

#include <doctest/doctest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace cadora::test {

namespace {

Task<void> waitForEver(MainActor& actor, std::shared_ptr<int> cancellations) {
    OperationAwaiter<std::monostate> waiting(actor,
                                             [cancellations](Completion<std::monostate>) -> CancelAction {
                                                 return [cancellations] { ++*cancellations; };
                                             });
    co_await waiting;
}

} // namespace

TEST_CASE("jobs run also while a job runs an event loop of its own, as a modal dialog does") {
    EventLoop loop;
    QtMainActor actor;
    std::vector<std::string> trace;
    actor.post([&] {
        QEventLoop dialog;
        actor.post([&] {
            trace.emplace_back("inside");
            dialog.quit();
        });
        dialog.exec();
        trace.emplace_back("after");
    });
    actor.post([&] { trace.emplace_back("already waiting"); });
    CHECK(loop.runUntil([&] { return trace.size() == 3; }));
    CHECK(trace == std::vector<std::string>{"already waiting", "inside", "after"});
}

TEST_CASE("a chain of jobs that post each other leaves the event loop its turns") {
    EventLoop loop;
    QtMainActor actor;
    bool timerFired = false;
    std::function<void()> again = [&] {
        if (!timerFired) {
            actor.post(again);
        }
    };
    actor.post(again);
    QTimer::singleShot(0, [&] { timerFired = true; });
    CHECK(loop.runUntil([&] { return timerFired; }));
    loop.runPending();
}

TEST_CASE("a job wakes an event loop that sleeps") {
    EventLoop loop;
    QtMainActor actor;
    QEventLoop sleeping;
    std::thread poster([&] { actor.post([&] { sleeping.quit(); }); });
    sleeping.exec();
    poster.join();
}

TEST_CASE("ending the tasks calls off what they wait for, and nothing runs afterwards") {
    EventLoop loop;
    QtMainActor actor;
    const auto cancellations = std::make_shared<int>(0);
    bool ran = false;
    actor.start(waitForEver(actor, cancellations));
    loop.runPending();
    actor.post([&] { ran = true; });
    actor.endTasks();
    CHECK(*cancellations == 1);
    actor.post([&] { ran = true; });
    loop.runPending();
    CHECK_FALSE(ran);
}

} // namespace cadora::test
