#include "auth/KeychainStore.h"

#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

using namespace cadora;
using test::TestPlatform;
using Calls = std::vector<std::string>;

TEST_CASE("an account that was never written is absent") {
    TestPlatform platform;
    CHECK_FALSE(KeychainStore::get("cadoraToken"));
}

TEST_CASE("deleting an item that isn't there is a success") {
    TestPlatform platform;
    CHECK(KeychainStore::set(std::nullopt, "cadoraToken"));
    CHECK(platform.keychain.calls == Calls{"remove cadoraToken"});
}

TEST_CASE("a second value updates the item instead of adding another") {
    TestPlatform platform;
    CHECK(KeychainStore::set("first", "cadoraToken"));
    CHECK(KeychainStore::set("second", "cadoraToken"));
    CHECK(platform.keychain.items.size() == 1);
    CHECK(KeychainStore::get("cadoraToken") == "second");
    CHECK(platform.keychain.calls == Calls{"copy cadoraToken", "add cadoraToken", "copy cadoraToken",
                                           "update cadoraToken", "copy cadoraToken"});
}

TEST_CASE("a value comes back byte for byte") {
    TestPlatform platform;
    for (const std::string value : {"plain", "Zoë 🎵 e\xCC\x81", "line\nbreak", ""}) {
        CHECK(KeychainStore::set(value, "appleEmail"));
        CHECK(KeychainStore::get("appleEmail") == value);
    }
}

TEST_CASE("an item that is not valid UTF-8 reads as absent") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "\xFF\xFE");
    CHECK_FALSE(KeychainStore::get("cadoraToken"));
}

TEST_CASE("a text that is not valid UTF-8 deletes the item") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "old");
    CHECK(KeychainStore::set("\xFF", "cadoraToken"));
    CHECK_FALSE(platform.keychain.stored("cadoraToken"));
}

TEST_CASE("whatever keeps an item from being read, it reads as absent") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "t");
    for (const Keychain::Status status : {-25308, -25293, -25300, 1}) {
        platform.keychain.copyStatus = status;
        CHECK_FALSE(KeychainStore::get("cadoraToken"));
    }
}

TEST_CASE("a look-up that fails in any way leads to an add, whose failure is final") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "old");
    platform.keychain.copyStatus = -25308;
    CHECK_FALSE(KeychainStore::set("new", "cadoraToken"));
    CHECK(platform.keychain.calls == Calls{"copy cadoraToken", "add cadoraToken"});
    CHECK(platform.keychain.stored("cadoraToken") == "old");
}

TEST_CASE("an update or a deletion that fails is false") {
    TestPlatform platform;
    platform.keychain.store("cadoraToken", "old");
    platform.keychain.updateStatus = -25308;
    CHECK_FALSE(KeychainStore::set("new", "cadoraToken"));
    platform.keychain.removeStatus = -25308;
    CHECK_FALSE(KeychainStore::set(std::nullopt, "cadoraToken"));
    CHECK(platform.keychain.stored("cadoraToken") == "old");
}

TEST_CASE("every call names the service, the account and the data-protection keychain") {
    TestPlatform platform;
    KeychainStore::set("v", "cadoraUserId");
    KeychainStore::get("cadoraUserId");
    KeychainStore::set(std::nullopt, "cadoraUserId");
    REQUIRE(platform.keychain.queries.size() == 4);
    for (const KeychainQuery& query : platform.keychain.queries) {
        CHECK(query.service == "com.norvelant.cadora.mac");
        CHECK(query.account == "cadoraUserId");
        CHECK(query.useDataProtectionKeychain);
    }
}

TEST_CASE("the accounts are four, in a fixed order") {
    const auto& all = KeychainStore::Key::all;
    CHECK(std::vector<std::string>(all.begin(), all.end()) ==
          std::vector<std::string>{"cadoraToken", "cadoraUserId", "appleUserId", "appleEmail"});
}

TEST_CASE("a new item can be read from the first unlock on, also while nobody is there") {
    TestPlatform platform;
    CHECK(KeychainStore::set("t", "cadoraToken"));
    CHECK(platform.keychain.accessibilities == std::vector{KeychainAccessibility::afterFirstUnlock});
}
