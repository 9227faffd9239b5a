#include "base/SerialQueue.h"

#include <doctest/doctest.h>

#include <thread>
#include <vector>

using namespace cadora;

TEST_CASE("pieces of work on a serial queue never overlap") {
    SerialQueue queue("test");
    int counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                queue.sync([&] { ++counter; });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    CHECK(counter == 4000);
}

TEST_CASE("a serial queue hands back the result, and goes on after a piece that threw") {
    SerialQueue queue("test");
    CHECK(queue.sync([] { return 7; }) == 7);
    CHECK_THROWS_AS(queue.sync([]() -> int { throw 1; }), int);
    CHECK(queue.sync([] { return 8; }) == 8);
}
