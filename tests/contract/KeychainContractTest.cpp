#include "fakes/FakeKeychain.h"
#include "hosts/linux/LibsecretKeychain.h"
#include "linux/Keyring.h"

#include <doctest/doctest.h>

#include <chrono>
#include <string>

namespace cadora::test {

namespace {

struct InMemory {
    FakeKeychain keychain;
};

struct InAKeyring {
    Keyring keyring;
    LibsecretKeychain keychain{std::chrono::minutes(1)};
};

const KeychainQuery token{"com.norvelant.cadora.mac", "cadoraToken"};
constexpr auto whenUnlocked = KeychainAccessibility::afterFirstUnlock;

std::string dataOf(Keychain& keychain, const KeychainQuery& query) {
    std::string data = "untouched";
    CHECK(keychain.copyMatching(query, &data) == Keychain::success);
    return data;
}

} // namespace

} // namespace cadora::test

TYPE_TO_STRING_AS("in memory", cadora::test::InMemory);
TYPE_TO_STRING_AS("in a keyring", cadora::test::InAKeyring);

namespace cadora::test {

TEST_CASE_TEMPLATE("an item that was never made is not found, and the caller's data stays", Subject, InMemory,
                   InAKeyring) {
    Subject subject;
    std::string data = "untouched";
    CHECK(subject.keychain.copyMatching(token, &data) == Keychain::itemNotFound);
    CHECK(subject.keychain.copyMatching(token, nullptr) == Keychain::itemNotFound);
    CHECK(data == "untouched");
    CHECK(subject.keychain.update(token, "x") == Keychain::itemNotFound);
    CHECK(subject.keychain.remove(token) == Keychain::itemNotFound);
}

TEST_CASE_TEMPLATE("what was added comes back byte for byte", Subject, InMemory, InAKeyring) {
    const std::string values[] = {
        "token",
        "",
        "Zażółć ✓ 🎵",
        "two\nlines\r\n",
        std::string("nul\0inside", 10),
        "not UTF-8 \xff\xfe",
        std::string(65536, 'x'),
    };
    Subject subject;
    for (const std::string& value : values) {
        CHECK(subject.keychain.add(token, value, whenUnlocked) == Keychain::success);
        CHECK(subject.keychain.copyMatching(token, nullptr) == Keychain::success);
        CHECK(dataOf(subject.keychain, token) == value);
        CHECK(subject.keychain.remove(token) == Keychain::success);
    }
}

TEST_CASE_TEMPLATE("an update replaces the bytes of the one item", Subject, InMemory, InAKeyring) {
    Subject subject;
    REQUIRE(subject.keychain.add(token, "first", whenUnlocked) == Keychain::success);
    CHECK(subject.keychain.update(token, "second ✓") == Keychain::success);
    CHECK(dataOf(subject.keychain, token) == "second ✓");
    CHECK(subject.keychain.remove(token) == Keychain::success);
    CHECK(subject.keychain.copyMatching(token, nullptr) == Keychain::itemNotFound);
}

TEST_CASE_TEMPLATE("an item that exists can't be added again", Subject, InMemory, InAKeyring) {
    Subject subject;
    REQUIRE(subject.keychain.add(token, "first", whenUnlocked) == Keychain::success);
    CHECK(subject.keychain.add(token, "second", whenUnlocked) == LibsecretKeychain::duplicateItem);
    CHECK(dataOf(subject.keychain, token) == "first");
}

TEST_CASE_TEMPLATE("items differ by service and by account", Subject, InMemory, InAKeyring) {
    Subject subject;
    const KeychainQuery userID{token.service, "cadoraUserId"};
    const KeychainQuery foreign{"org.example", token.account};
    REQUIRE(subject.keychain.add(token, "token", whenUnlocked) == Keychain::success);
    REQUIRE(subject.keychain.add(userID, "user", whenUnlocked) == Keychain::success);
    REQUIRE(subject.keychain.add(foreign, "foreign", whenUnlocked) == Keychain::success);
    CHECK(subject.keychain.update(userID, "changed") == Keychain::success);
    CHECK(dataOf(subject.keychain, token) == "token");
    CHECK(dataOf(subject.keychain, userID) == "changed");
    CHECK(subject.keychain.remove(token) == Keychain::success);
    CHECK(subject.keychain.copyMatching(token, nullptr) == Keychain::itemNotFound);
    CHECK(dataOf(subject.keychain, userID) == "changed");
    CHECK(dataOf(subject.keychain, foreign) == "foreign");
}

} // namespace cadora::test
