#include "hosts/linux/system/GetentropyRandomSource.h"

#include <doctest/doctest.h>

#include <bit>
#include <cstdint>
#include <set>

namespace cadora::test {

TEST_CASE("the values don't repeat, and every bit is as often one as zero") {
    GetentropyRandomSource random;
    std::set<std::uint64_t> values;
    int ones[64] = {};
    constexpr int draws = 4096;
    for (int i = 0; i < draws; ++i) {
        const std::uint64_t value = random.next();
        values.insert(value);
        for (unsigned bit = 0; bit < 64; ++bit) {
            ones[bit] += static_cast<int>((value >> bit) & 1U);
        }
    }
    CHECK(values.size() == draws);
    // Ten standard deviations: no run of a sound source ever fails here.
    for (const int count : ones) {
        CHECK(count > draws / 2 - 320);
        CHECK(count < draws / 2 + 320);
    }
}

} // namespace cadora::test
