#include "base/Task.h"
#include "base/Completion.h"
#include "base/MainActor.h"
#include "fakes/InlineBackgroundExecutor.h"
#include "fakes/ManualMainActor.h"
#include "platform/BackgroundExecutor.h"

#include <doctest/doctest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace cadora;
using cadora::test::ManualMainActor;

namespace {

using Trace = std::vector<std::string>;

// Counts the frames that are alive.
struct Counted {
    explicit Counted(int& live) : live_(live) { ++live_; }
    Counted(const Counted& other) : live_(other.live_) { ++live_; }
    Counted& operator=(const Counted&) = delete;
    ~Counted() { --live_; }

private:
    int& live_;
};

Task<int> answer(Trace& trace) {
    trace.emplace_back("answer");
    co_return 42;
}

Task<int> failing() {
    throw std::runtime_error("broken");
    co_return 0;
}

Task<void> awaitAnswer(Trace& trace) {
    trace.emplace_back("before");
    trace.push_back(std::to_string(co_await answer(trace)));
}

Task<void> awaitFailure(Trace& trace) {
    try {
        co_await failing();
    } catch (const std::runtime_error& error) {
        trace.emplace_back(error.what());
    }
}

Task<void> say(Trace& trace, std::string word) {
    trace.push_back(std::move(word));
    co_return;
}

Task<void> waitFor(MainActor& actor, Operation<int> operation, Trace& trace, Counted counted) {
    (void)counted;
    try {
        trace.push_back(std::to_string(co_await OperationAwaiter<int>(actor, std::move(operation))));
    } catch (const Error& error) {
        trace.push_back(error.text());
    }
}

Task<void> waitTwice(MainActor& actor, Operation<int> operation, Trace& trace) {
    for (int i = 0; i < 2; ++i) {
        try {
            co_await OperationAwaiter<int>(actor, operation);
        } catch (const CancellationError& error) {
            trace.push_back(error.text());
        }
    }
}

constexpr int manyTasks = 100'000;

Task<int> one() {
    co_return 1;
}

Task<int> oneOrFailure(int number) {
    if (number % 2 == 1) {
        throw std::runtime_error("odd");
    }
    co_return 1;
}

Task<int> oneByAnOperation(MainActor& actor) {
    OperationAwaiter<int> step(actor, [](const Completion<int>& completion) -> CancelAction {
        completion(1);
        return nullptr;
    });
    co_return co_await step;
}

Task<void> awaitMany(MainActor& actor, int& sum) {
    for (int number = 0; number < manyTasks; ++number) {
        sum += co_await one();
        sum += co_await oneByAnOperation(actor);
        try {
            sum += co_await oneOrFailure(number);
        } catch (const std::runtime_error&) {
            sum -= 1;
        }
    }
}

Task<void> waitThenAwaitMany(MainActor& actor, Operation<int> operation, int& sum) {
    Trace trace;
    int live = 0;
    co_await waitFor(actor, std::move(operation), trace, Counted(live));
    co_await awaitMany(actor, sum);
}

// Calls itself off once its operation has ended.
Task<void> waitThenCancel(MainActor& actor, Operation<int> operation, std::optional<StartedTask>& task,
                          Trace& trace) {
    OperationAwaiter<int> step(actor, std::move(operation));
    trace.push_back(std::to_string(co_await step));
    task->cancel();
    trace.emplace_back("cancelled");
}

// An operation that completes when the test says so.
struct Pending {
    Completion<int> completion;
    int begun = 0;
    int calledOff = 0;

    Operation<int> operation() {
        return [this](Completion<int> done) -> CancelAction {
            completion = std::move(done);
            ++begun;
            return [this] { ++calledOff; };
        };
    }
};

} // namespace

TEST_CASE("a task does not begin before it is awaited") {
    Trace trace;
    {
        const auto task = answer(trace);
    }
    CHECK(trace.empty());
}

TEST_CASE("a started task begins in a later turn, behind the jobs that were posted before") {
    Trace trace;
    ManualMainActor actor;
    actor.post([&] { trace.emplace_back("job"); });
    actor.start(say(trace, "first"));
    actor.start(say(trace, "second"));
    trace.emplace_back("caller");
    actor.runUntilIdle();
    CHECK(trace == Trace{"caller", "job", "first", "second"});
}

TEST_CASE("awaiting a task yields its value") {
    Trace trace;
    ManualMainActor actor;
    actor.start(awaitAnswer(trace));
    actor.runUntilIdle();
    CHECK(trace == Trace{"before", "answer", "42"});
}

TEST_CASE("awaiting a task rethrows its error") {
    Trace trace;
    ManualMainActor actor;
    actor.start(awaitFailure(trace));
    actor.runUntilIdle();
    CHECK(trace == Trace{"broken"});
}

TEST_CASE("a waiting task goes on when its operation completes, and its frame dies at its end") {
    Trace trace;
    int live = 0;
    Pending pending;
    ManualMainActor actor;
    actor.start(waitFor(actor, pending.operation(), trace, Counted(live)));
    actor.runUntilIdle();
    CHECK(live == 1);
    CHECK(trace.empty());
    pending.completion(7);
    CHECK(trace == Trace{"7"});
    CHECK(live == 0);
    CHECK(pending.calledOff == 0);
}

TEST_CASE("an operation that completes within its own start does not suspend for ever") {
    Trace trace;
    int live = 0;
    ManualMainActor actor;
    actor.start(waitFor(
        actor,
        [](const Completion<int>& completion) -> CancelAction {
            completion(3);
            return nullptr;
        },
        trace, Counted(live)));
    actor.runUntilIdle();
    CHECK(trace == Trace{"3"});
}

TEST_CASE("a second completion changes nothing") {
    Trace trace;
    int live = 0;
    Pending pending;
    ManualMainActor actor;
    actor.start(waitFor(actor, pending.operation(), trace, Counted(live)));
    actor.runUntilIdle();
    pending.completion(1);
    pending.completion(2);
    CHECK(trace == Trace{"1"});
}

TEST_CASE("cancelling a waiting task calls its operation off and throws the cancellation into it") {
    Trace trace;
    int live = 0;
    Pending pending;
    ManualMainActor actor;
    StartedTask task = actor.start(waitFor(actor, pending.operation(), trace, Counted(live)));
    actor.runUntilIdle();
    task.cancel();
    CHECK(pending.calledOff == 1);
    CHECK(trace.empty());
    pending.completion(5);
    actor.runUntilIdle();
    CHECK(trace == Trace{"CancellationError()"});
    CHECK(live == 0);
    task.cancel();
    CHECK(pending.calledOff == 1);
}

TEST_CASE("any number of tasks that end without waiting leave no stack behind") {
    int sum = 0;
    ManualMainActor actor;
    actor.start(awaitMany(actor, sum));
    actor.runUntilIdle();
    CHECK(sum == 2 * manyTasks);
}

TEST_CASE("any number of tasks that end without waiting leave no stack behind after one that waited") {
    int sum = 0;
    Pending pending;
    ManualMainActor actor;
    actor.start(waitThenAwaitMany(actor, pending.operation(), sum));
    actor.runUntilIdle();
    CHECK(sum == 0);
    pending.completion(7);
    CHECK(sum == 2 * manyTasks);
}

TEST_CASE("an operation that has ended is not called off any more") {
    Trace trace;
    Pending pending;
    ManualMainActor actor;
    std::optional<StartedTask> task;
    task = actor.start(waitThenCancel(actor, pending.operation(), task, trace));
    actor.runUntilIdle();
    pending.completion(7);
    actor.runUntilIdle();
    CHECK(trace == Trace{"7", "cancelled"});
    CHECK(pending.calledOff == 0);
}

TEST_CASE("an operation that ends within its own start is not called off any more") {
    Trace trace;
    int calledOff = 0;
    ManualMainActor actor;
    std::optional<StartedTask> task;
    const Operation<int> immediate = [&calledOff](const Completion<int>& completion) -> CancelAction {
        completion(3);
        return [&calledOff] { ++calledOff; };
    };
    task = actor.start(waitThenCancel(actor, immediate, task, trace));
    actor.runUntilIdle();
    CHECK(trace == Trace{"3", "cancelled"});
    CHECK(calledOff == 0);
}

TEST_CASE("a cancelled task begins no further operation") {
    Trace trace;
    Pending pending;
    ManualMainActor actor;
    StartedTask task = actor.start(waitTwice(actor, pending.operation(), trace));
    actor.runUntilIdle();
    task.cancel();
    actor.runUntilIdle();
    CHECK(pending.begun == 1);
    CHECK(trace == Trace{"CancellationError()", "CancellationError()"});
}

TEST_CASE("a task that is cancelled before it begins never starts its operation") {
    Trace trace;
    int live = 0;
    Pending pending;
    ManualMainActor actor;
    actor.start(waitFor(actor, pending.operation(), trace, Counted(live))).cancel();
    actor.runUntilIdle();
    CHECK(pending.begun == 0);
    CHECK(trace == Trace{"CancellationError()"});
}

TEST_CASE("destroying the actor ends waiting tasks, and a late completion finds nobody") {
    Trace trace;
    int live = 0;
    Pending pending;
    {
        ManualMainActor actor;
        actor.start(waitFor(actor, pending.operation(), trace, Counted(live)));
        actor.runUntilIdle();
        CHECK(live == 1);
    }
    CHECK(live == 0);
    CHECK(pending.calledOff == 1);
    pending.completion(5);
    CHECK(trace.empty());
}

TEST_CASE("destroying the actor between a cancellation and its delivery is harmless") {
    Trace trace;
    int live = 0;
    Pending pending;
    {
        ManualMainActor actor;
        StartedTask task = actor.start(waitFor(actor, pending.operation(), trace, Counted(live)));
        actor.runUntilIdle();
        task.cancel();
    }
    CHECK(live == 0);
    CHECK(trace.empty());
}

TEST_CASE("a task that was started but never began dies with its actor") {
    Trace trace;
    int live = 0;
    Pending pending;
    {
        ManualMainActor actor;
        actor.start(waitFor(actor, pending.operation(), trace, Counted(live)));
    }
    CHECK(live == 0);
    CHECK(pending.begun == 0);
}

namespace {

class ThreadExecutor : public BackgroundExecutor {
public:
    void run(std::function<void()> job) override { threads_.emplace_back(std::move(job)); }
    void join() {
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

private:
    std::vector<std::thread> threads_;
};

Task<void> compute(MainActor& actor, BackgroundExecutor& executor, std::thread::id& worked,
                   std::thread::id& resumed) {
    auto step = runInBackground(actor, executor, [] { return std::this_thread::get_id(); });
    worked = co_await step;
    resumed = std::this_thread::get_id();
}

Task<void> computeBadly(MainActor& actor, BackgroundExecutor& executor, Trace& trace) {
    try {
        auto step = runInBackground(actor, executor,
                                    []() -> int { throw std::runtime_error("off the main thread"); });
        co_await step;
    } catch (const std::runtime_error& error) {
        trace.emplace_back(error.what());
    }
}

} // namespace

TEST_CASE("a background step runs on another thread and resumes on the main actor") {
    ThreadExecutor executor;
    ManualMainActor actor;
    std::thread::id worked;
    std::thread::id resumed;
    actor.start(compute(actor, executor, worked, resumed));
    actor.runUntilIdle();
    executor.join();
    actor.runUntilIdle();
    CHECK(worked != std::this_thread::get_id());
    CHECK(worked != std::thread::id());
    CHECK(resumed == std::this_thread::get_id());
}

TEST_CASE("a background step's error is thrown on the main actor") {
    Trace trace;
    test::InlineBackgroundExecutor executor;
    ManualMainActor actor;
    actor.start(computeBadly(actor, executor, trace));
    actor.runUntilIdle();
    CHECK(trace == Trace{"off the main thread"});
}
