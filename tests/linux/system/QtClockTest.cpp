#include "hosts/linux/system/QtClock.h"

#include "linux/EventLoop.h"

#include <doctest/doctest.h>

#include <chrono>
#include <optional>
#include <vector>

namespace cadora::test {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

TEST_CASE("now is the system's time, counted from 2001") {
    QtClock clock;
    const auto before = std::chrono::system_clock::now();
    const Date now = clock.now();
    const auto after = std::chrono::system_clock::now();
    CHECK(now.secondsSinceReferenceDate >= Date::from(before).secondsSinceReferenceDate);
    CHECK(now.secondsSinceReferenceDate <= Date::from(after).secondsSinceReferenceDate);
}

TEST_CASE("a wait completes once, not before its time") {
    EventLoop loop;
    QtClock clock;
    int completions = 0;
    const auto begin = steady_clock::now();
    steady_clock::time_point end;
    // Shorter than the ticks of Qt's timers, so that rounding down would show.
    constexpr auto duration = 10ms + 700us;
    clock.sleep(duration, [&](const Result<std::monostate>& result) {
        CHECK(result.index() == 0);
        end = steady_clock::now();
        ++completions;
    });
    CHECK(loop.runUntil([&] { return completions > 0; }));
    CHECK(end - begin >= duration);
    loop.runPending();
    CHECK(completions == 1);
}

TEST_CASE("a wait of no time, or of less, does not complete within the call") {
    EventLoop loop;
    QtClock clock;
    int completions = 0;
    clock.sleep(0s, [&](const auto&) { ++completions; });
    clock.sleep(-1s, [&](const auto&) { ++completions; });
    CHECK(completions == 0);
    CHECK(loop.runUntil([&] { return completions == 2; }));
}

TEST_CASE("waits complete in the order of their ends") {
    EventLoop loop;
    QtClock clock;
    std::vector<int> trace;
    clock.sleep(60ms, [&](const auto&) { trace.push_back(60); });
    clock.sleep(1ms, [&](const auto&) { trace.push_back(1); });
    clock.sleep(30ms, [&](const auto&) { trace.push_back(30); });
    CHECK(loop.runUntil([&] { return trace.size() == 3; }));
    CHECK(trace == std::vector<int>{1, 30, 60});
}

TEST_CASE("a wait that was called off never completes, and calling it off again does nothing") {
    EventLoop loop;
    QtClock clock;
    bool completed = false;
    const CancelAction cancel = clock.sleep(1ms, [&](const auto&) { completed = true; });
    cancel();
    cancel();
    bool later = false;
    clock.sleep(20ms, [&](const auto&) { later = true; });
    CHECK(loop.runUntil([&] { return later; }));
    cancel();
    CHECK_FALSE(completed);
}

TEST_CASE("destroying the clock calls off its waits") {
    EventLoop loop;
    std::optional<QtClock> clock(std::in_place);
    bool completed = false;
    const CancelAction cancel = clock->sleep(0s, [&](const auto&) { completed = true; });
    clock.reset();
    cancel();
    loop.runPending();
    CHECK_FALSE(completed);
}

} // namespace cadora::test
