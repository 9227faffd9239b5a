#include "hosts/linux/media/worker/Crew.h"

#include <doctest/doctest.h>

#include <atomic>
#include <set>

using namespace cadora;

TEST_CASE("every member of a crew carries out each work once") {
    Crew crew(3);
    for (int round = 0; round < 50; ++round) {
        std::mutex mutex;
        std::multiset<int> members;
        crew.begin([&](int member) {
            const std::lock_guard lock(mutex);
            members.insert(member);
        });
        crew.awaitEnd();
        CHECK(members == std::multiset<int>{0, 1, 2});
    }
}

TEST_CASE("a crew that goes waits for its work, and one without members has none") {
    std::atomic<int> done{0};
    {
        Crew crew(2);
        crew.begin([&](int) { ++done; });
    }
    CHECK(done == 2);
    Crew nobody(0);
    nobody.begin([&](int) { ++done; });
    nobody.awaitEnd();
    CHECK(done == 2);
}
