#include "outbox/ShortID.h"

#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <map>
#include <set>

using namespace cadora;

TEST_CASE("a short identifier is always 8 characters of a to z and 0 to 9") {
    test::TestPlatform platform;
    std::set<std::string> seen;
    for (int i = 0; i < 2000; ++i) {
        const std::string id = ShortID::generate();
        REQUIRE(id.size() == 8);
        REQUIRE(id.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789") == std::string::npos);
        seen.insert(id);
    }
    CHECK(seen.size() == 2000);
}

TEST_CASE("the alphabet is the lower-case letters, then the digits") {
    const auto& alphabet = ShortID::alphabet();
    CHECK(std::string(alphabet.begin(), alphabet.end()) == "abcdefghijklmnopqrstuvwxyz0123456789");
}

TEST_CASE("the random value's place in the whole range chooses the character") {
    test::TestPlatform platform;
    // The high half of r × 36 is 0 for small values, 18 for the middle and 35 for the largest.
    platform.random.scripted = {1, 0x8000000000000001U, 0xFFFFFFFFFFFFFFFFU, 1, 1, 1, 1, 1};
    CHECK(ShortID::generate() == "as9aaaaa");
}

TEST_CASE("a random value that would favour a character is drawn again") {
    test::TestPlatform platform;
    // 0 × 36 has low bits 0, below 16: refused. 2^64 / 36 rounded up gives low bits 20: kept, as "b".
    platform.random.scripted = {0, 0x071C71C71C71C71DU, 1, 1, 1, 1, 1, 1, 1};
    CHECK(ShortID::generate() == "baaaaaaa");
    CHECK(platform.random.draws == 9);
}

TEST_CASE("every character is about equally frequent") {
    test::TestPlatform platform;
    std::map<char, int> counts;
    for (int i = 0; i < 9000; ++i) {
        for (const char c : ShortID::generate()) {
            ++counts[c];
        }
    }
    CHECK(counts.size() == 36);
    for (const auto& [character, count] : counts) {
        CHECK(count > 1700);
        CHECK(count < 2300);
    }
}
