// What every host's keychain must do. Run by a program that defines makeKeychainUnderTest().

#include "contract/KeychainUnderTest.h"
#include "fakes/FakeKeychain.h"

#include <doctest/doctest.h>

#include <string>

namespace cadora::test {

namespace {

struct InMemory {
    FakeKeychain keychain;

    static KeychainQuery query(const char* service, const char* account) { return {service, account}; }
};

struct OnTheHost {
    std::unique_ptr<KeychainUnderTest> subject = makeKeychainUnderTest();
    Keychain& keychain = subject->keychain();

    KeychainQuery query(const char* service, const char* account) const {
        return {service, account, subject->useDataProtectionKeychain()};
    }
};

constexpr Keychain::Status duplicateItem = -25299;
constexpr const char* service = KeychainUnderTest::service;
constexpr const char* otherService = KeychainUnderTest::otherService;
constexpr auto whenUnlocked = KeychainAccessibility::afterFirstUnlock;

std::string dataOf(Keychain& keychain, const KeychainQuery& query) {
    std::string data = "untouched";
    CHECK(keychain.copyMatching(query, &data) == Keychain::success);
    return data;
}

} // namespace

} // namespace cadora::test

TYPE_TO_STRING_AS("in memory", cadora::test::InMemory);
TYPE_TO_STRING_AS("on the host", cadora::test::OnTheHost);

namespace cadora::test {

TEST_CASE_TEMPLATE("an item that was never made is not found, and the caller's data stays", Subject, InMemory,
                   OnTheHost) {
    Subject subject;
    const KeychainQuery token = subject.query(service, "cadoraToken");
    std::string data = "untouched";
    CHECK(subject.keychain.copyMatching(token, &data) == Keychain::itemNotFound);
    CHECK(subject.keychain.copyMatching(token, nullptr) == Keychain::itemNotFound);
    CHECK(data == "untouched");
    CHECK(subject.keychain.update(token, "x") == Keychain::itemNotFound);
    CHECK(subject.keychain.remove(token) == Keychain::itemNotFound);
}

TEST_CASE_TEMPLATE("what was added comes back byte for byte", Subject, InMemory, OnTheHost) {
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
    const KeychainQuery token = subject.query(service, "cadoraToken");
    for (const std::string& value : values) {
        CHECK(subject.keychain.add(token, value, whenUnlocked) == Keychain::success);
        CHECK(subject.keychain.copyMatching(token, nullptr) == Keychain::success);
        CHECK(dataOf(subject.keychain, token) == value);
        CHECK(subject.keychain.remove(token) == Keychain::success);
    }
}

TEST_CASE_TEMPLATE("an update replaces the bytes of the one item", Subject, InMemory, OnTheHost) {
    Subject subject;
    const KeychainQuery token = subject.query(service, "cadoraToken");
    REQUIRE(subject.keychain.add(token, "first", whenUnlocked) == Keychain::success);
    CHECK(subject.keychain.update(token, "second ✓") == Keychain::success);
    CHECK(dataOf(subject.keychain, token) == "second ✓");
    CHECK(subject.keychain.remove(token) == Keychain::success);
    CHECK(subject.keychain.copyMatching(token, nullptr) == Keychain::itemNotFound);
}

TEST_CASE_TEMPLATE("an item that exists can't be added again", Subject, InMemory, OnTheHost) {
    Subject subject;
    const KeychainQuery token = subject.query(service, "cadoraToken");
    REQUIRE(subject.keychain.add(token, "first", whenUnlocked) == Keychain::success);
    CHECK(subject.keychain.add(token, "second", whenUnlocked) == duplicateItem);
    CHECK(dataOf(subject.keychain, token) == "first");
}

TEST_CASE_TEMPLATE("items differ by service and by account", Subject, InMemory, OnTheHost) {
    Subject subject;
    const KeychainQuery token = subject.query(service, "cadoraToken");
    const KeychainQuery userID = subject.query(service, "cadoraUserId");
    const KeychainQuery foreign = subject.query(otherService, "cadoraToken");
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
