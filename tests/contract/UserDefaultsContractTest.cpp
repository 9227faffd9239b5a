// What every host's user defaults must do. Run by a program that defines makeUserDefaultsUnderTest().

#include "contract/UserDefaultsUnderTest.h"
#include "fakes/FakeUserDefaults.h"

#include <doctest/doctest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace cadora::test {

namespace {

struct InMemory {
    FakeUserDefaults defaults;
};

struct OnTheHost {
    std::unique_ptr<UserDefaultsUnderTest> subject = makeUserDefaultsUnderTest();
    UserDefaults& defaults = subject->defaults();
};

} // namespace

} // namespace cadora::test

TYPE_TO_STRING_AS("in memory", cadora::test::InMemory);
TYPE_TO_STRING_AS("on the host", cadora::test::OnTheHost);

namespace cadora::test {

TEST_CASE_TEMPLATE("a key that was never set is absent", Subject, InMemory, OnTheHost) {
    Subject subject;
    CHECK_FALSE(subject.defaults.object("defaultVisibility"));
    CHECK_FALSE(subject.defaults.string("defaultVisibility"));
    CHECK_FALSE(subject.defaults.boolean("hideMenuBarIcon"));
}

TEST_CASE_TEMPLATE("a value comes back with its type", Subject, InMemory, OnTheHost) {
    Subject subject;
    const PropertyDictionary nested{
        {"enabled_context_menu", std::int64_t{1}},
        {"presentation_modes", PropertyDictionary{{"ContextMenu", std::int64_t{1}}}},
        {"", PropertyDictionary{}}};
    const PropertyValue values[] = {true,
                                    false,
                                    std::int64_t{0},
                                    std::numeric_limits<std::int64_t>::min(),
                                    std::numeric_limits<std::int64_t>::max(),
                                    1.0,
                                    0.1,
                                    -1e300,
                                    "",
                                    "Ünï \"quoted\"\n\\ \u0001",
                                    std::string("nul\0inside", 10),
                                    nested};
    for (const PropertyValue& value : values) {
        subject.defaults.set("key", value);
        CHECK(subject.defaults.object("key") == value);
    }
}

TEST_CASE_TEMPLATE("a string is not a Boolean and a number is neither", Subject, InMemory, OnTheHost) {
    Subject subject;
    subject.defaults.set("text", "true");
    subject.defaults.set("flag", true);
    subject.defaults.set("number", std::int64_t{1});
    CHECK(subject.defaults.string("text") == "true");
    CHECK_FALSE(subject.defaults.boolean("text"));
    CHECK(subject.defaults.boolean("flag"));
    CHECK_FALSE(subject.defaults.string("flag"));
    CHECK_FALSE(subject.defaults.boolean("number"));
    CHECK_FALSE(subject.defaults.string("number"));
}

TEST_CASE_TEMPLATE("setting a key replaces its value alone, whatever the type", Subject, InMemory,
                   OnTheHost) {
    Subject subject;
    subject.defaults.set("a", "1");
    subject.defaults.set("b", "2");
    subject.defaults.set("a", true);
    CHECK(subject.defaults.boolean("a"));
    CHECK(subject.defaults.string("b") == "2");
    subject.defaults.set("number", std::int64_t{1});
    subject.defaults.set("number", 1.0);
    CHECK(subject.defaults.object("number") == PropertyValue(1.0));
}

TEST_CASE_TEMPLATE("an absent value removes the key, and removing it again does nothing", Subject, InMemory,
                   OnTheHost) {
    Subject subject;
    subject.defaults.set("a", "1");
    subject.defaults.set("b", "2");
    subject.defaults.set("a", std::nullopt);
    subject.defaults.set("a", std::nullopt);
    CHECK_FALSE(subject.defaults.object("a"));
    CHECK(subject.defaults.string("b") == "2");
}

} // namespace cadora::test
