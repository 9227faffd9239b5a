#include "app/Notifier.h"

#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

using namespace cadora;
using test::TestPlatform;

TEST_CASE("permission is asked for alerts and sound") {
    TestPlatform platform;
    Notifier::shared().requestAuthorization();
    CHECK(platform.notificationCenter.authorizations == std::vector<unsigned>{6});
}

TEST_CASE("two identical posts are two notifications") {
    TestPlatform platform;
    Notifier::shared().post("Sent to Cadora ✓", "song.wav — private");
    Notifier::shared().post("Sent to Cadora ✓", "song.wav — private");
    const auto& requests = platform.notificationCenter.requests;
    REQUIRE(requests.size() == 2);
    CHECK(requests[0].identifier != requests[1].identifier);
    CHECK(requests[0].title == "Sent to Cadora ✓");
    CHECK(requests[0].body == "song.wav — private");
}

TEST_CASE("an identifier is a random UUID in upper case") {
    TestPlatform platform;
    platform.random.scripted = {0x0123456789ABCDEFU, 0xFEDCBA9876543210U};
    Notifier::shared().post("t", "b");
    CHECK(platform.notificationCenter.requests.at(0).identifier == "01234567-89AB-4DEF-BEDC-BA9876543210");
}
