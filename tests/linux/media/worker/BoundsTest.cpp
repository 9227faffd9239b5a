#include "hosts/linux/media/worker/Bounds.h"

#include <doctest/doctest.h>

using namespace cadora;

namespace {

constexpr std::int64_t huge = std::int64_t{1} << 62;
constexpr std::int64_t hour = 3600;

} // namespace

TEST_CASE("an hour of silence in the densest common format is no longer than its bytes can be") {
    CHECK(longestSoundIn(hour * 20) >= 3600);
    CHECK(longestSoundIn(271358) < 5 * 3600);
    CHECK(longestSoundIn(0) == 600);
}

TEST_CASE("no file, whatever its size, gets more than what is needed for a day of sound") {
    CHECK(longestSoundIn(huge) == 24 * 3600);
    CHECK(longestTime(huge) <= 8 * hour);
    CHECK(exportTime(1e300) == exportTime(24 * 3600));
    CHECK(largestOutput(huge) < 6000000000);
    CHECK(largestMemory(huge) == std::int64_t{768} << 20);
    CHECK(measuringMemory(huge) < largestMemory(huge));
    CHECK(largestBlock(huge) == 256 << 20);
}

TEST_CASE("the output of a low bit rate fits what its file is allowed") {
    constexpr std::int64_t bytesOfSpeech = hour * 750;
    CHECK(largestOutput(bytesOfSpeech) > hour * 34000);
    CHECK(outputSize(3600, bytesOfSpeech) > hour * 34000);
    CHECK(outputSize(3600, bytesOfSpeech) < hour * 70000);
    CHECK(outputSize(3600, 0) == largestOutput(0));
}
