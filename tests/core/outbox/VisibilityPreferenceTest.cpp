#include "outbox/VisibilityPreference.h"

#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

using namespace cadora;

TEST_CASE("with nothing stored, new posts are private") {
    test::TestPlatform platform;
    CHECK(VisibilityPreference::current() == "private");
}

TEST_CASE("the stored \"subscribers\" is the only other choice") {
    test::TestPlatform platform;
    platform.userDefaults.set("defaultVisibility", PropertyValue("subscribers"));
    CHECK(VisibilityPreference::current() == "subscribers");
    platform.userDefaults.set("defaultVisibility", PropertyValue("private"));
    CHECK(VisibilityPreference::current() == "private");
}

TEST_CASE("another letter case, another text or another type reads as private") {
    test::TestPlatform platform;
    platform.userDefaults.set("defaultVisibility", PropertyValue("Subscribers"));
    CHECK(VisibilityPreference::current() == "private");
    platform.userDefaults.set("defaultVisibility", PropertyValue("public"));
    CHECK(VisibilityPreference::current() == "private");
    platform.userDefaults.set("defaultVisibility", PropertyValue(std::int64_t{1}));
    CHECK(VisibilityPreference::current() == "private");
}
