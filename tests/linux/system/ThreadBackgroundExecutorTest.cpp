#include "hosts/linux/system/ThreadBackgroundExecutor.h"

#include <doctest/doctest.h>

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <thread>

namespace cadora::test {

TEST_CASE("jobs run off the caller's thread, and every one of them") {
    constexpr int count = 1000;
    std::atomic<int> runs = 0;
    std::atomic<bool> onCaller = false;
    std::promise<void> all;
    const auto caller = std::this_thread::get_id();
    // The last to be made: it is gone before what its jobs use.
    ThreadBackgroundExecutor executor;
    for (int i = 0; i < count; ++i) {
        executor.run([&] {
            onCaller = onCaller || std::this_thread::get_id() == caller;
            if (++runs == count) {
                all.set_value();
            }
        });
    }
    all.get_future().wait();
    CHECK_FALSE(onCaller);
}

TEST_CASE("a job that takes its time does not hold up the next") {
    std::promise<void> release;
    std::promise<void> second;
    ThreadBackgroundExecutor executor;
    executor.run([&] { release.get_future().wait(); });
    executor.run([&] { second.set_value(); });
    second.get_future().wait();
    release.set_value();
}

TEST_CASE("destroying the executor waits for the jobs that run, and no job outlives it") {
    std::optional<ThreadBackgroundExecutor> executor(std::in_place);
    const auto held = std::make_shared<int>();
    std::promise<void> begun[2];
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    std::atomic<int> ended = 0;
    for (auto& promise : begun) {
        executor->run([&] {
            promise.set_value();
            released.wait();
            ++ended;
        });
    }
    for (auto& promise : begun) {
        promise.get_future().wait();
    }
    executor->run([held] {});
    std::thread releaser([&] { release.set_value(); });
    executor.reset();
    releaser.join();
    CHECK(ended == 2);
    CHECK(held.use_count() == 1);
}

TEST_CASE("once the executor has been ended no job uses anything any more, nor does one that comes later") {
    ThreadBackgroundExecutor executor;
    const auto used = std::make_shared<std::atomic<int>>(0);
    std::promise<void> begun[2];
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    for (auto& promise : begun) {
        executor.run([&promise, released, used] {
            promise.set_value();
            released.wait();
            ++*used;
        });
    }
    for (auto& promise : begun) {
        promise.get_future().wait();
    }
    // Done or dropped, as it happens.
    executor.run([used] {});
    std::thread releaser([&] { release.set_value(); });
    executor.end();
    releaser.join();
    CHECK(*used == 2);
    CHECK(used.use_count() == 1);
    executor.run([used] { *used += 1000; });
    executor.end();
    CHECK(*used == 2);
    CHECK(used.use_count() == 1);
}

} // namespace cadora::test
