#include "hosts/linux/keyring/LibsecretKeychain.h"

#include "linux/SilentService.h"
#include "linux/keyring/Keyring.h"

#include <doctest/doctest.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace cadora::test {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

const KeychainQuery token{"com.norvelant.cadora.mac", "cadoraToken"};
constexpr auto whenUnlocked = KeychainAccessibility::afterFirstUnlock;
constexpr auto forAsLongAsItTakes = 1min;
// D-Bus itself gives up after 25 s: whoever is back before that did not wait for it.
constexpr auto patienceOfDBus = 20s;

std::string dataOf(Keychain& keychain) {
    std::string data;
    CHECK(keychain.copyMatching(token, &data) == Keychain::success);
    return data;
}

// What asks the user for the keyring's password, and gets no answer.
SilentService prompterOn(PrivateBus& bus) {
    return {bus.connect(), "org.gnome.keyring.SystemPrompter", "/org/gnome/keyring/Prompter"};
}

} // namespace

TEST_CASE("an item carries its service and account, and a label for keyring programs") {
    Keyring keyring;
    LibsecretKeychain keychain(forAsLongAsItTakes);
    REQUIRE(keychain.add(token, "sëcret", whenUnlocked) == Keychain::success);
    CHECK(keyring.asAnotherProgram(
              "for item in items('cadoraToken'):\n"
              "    attributes = item.get_attributes()\n"
              "    print(item.get_label(), attributes['service'], attributes['account'])\n"
              "    print(item.get_secret().get_text(), item.get_secret().get_content_type())") ==
          "Cadora Helper (cadoraToken) com.norvelant.cadora.mac cadoraToken\nsëcret text/plain");
    REQUIRE(keychain.update(token, "changed") == Keychain::success);
    CHECK(keyring.asAnotherProgram(
              "print([item.get_secret().get_text() for item in items('cadoraToken')])") == "['changed']");
}

TEST_CASE("an item that another program made is read, changed and removed like our own, doubles included") {
    Keyring keyring;
    LibsecretKeychain keychain(forAsLongAsItTakes);
    keyring.asAnotherProgram(R"(
for name in ('org.example.One', 'org.example.Two'):
    schema = Secret.Schema.new(name, Secret.SchemaFlags.NONE,
        {'service': Secret.SchemaAttributeType.STRING, 'account': Secret.SchemaAttributeType.STRING})
    attributes = {'service': 'com.norvelant.cadora.mac', 'account': 'cadoraToken'}
    Secret.password_store_sync(schema, attributes, None, 'foreign', 'theirs', None)
print(len(items('cadoraToken'))))");
    CHECK(dataOf(keychain) == "theirs");
    CHECK(keychain.add(token, "x", whenUnlocked) == LibsecretKeychain::duplicateItem);
    CHECK(keychain.update(token, "ours") == Keychain::success);
    CHECK(
        keyring.asAnotherProgram("print([item.get_secret().get_text() for item in items('cadoraToken')])") ==
        "['ours', 'ours']");
    CHECK(keychain.remove(token) == Keychain::success);
    CHECK(keyring.asAnotherProgram("print(len(items('cadoraToken')))") == "0");
}

TEST_CASE("a locked keyring is a status, asks the user nothing, and is whole when unlocked again") {
    Keyring keyring;
    LibsecretKeychain keychain(forAsLongAsItTakes);
    REQUIRE(keychain.add(token, "secret", whenUnlocked) == Keychain::success);
    const SilentService prompter = prompterOn(keyring.bus);
    keyring.lock();
    std::string data = "untouched";
    CHECK(keychain.copyMatching(token, &data) == LibsecretKeychain::interactionNotAllowed);
    CHECK(data == "untouched");
    CHECK(keychain.copyMatching(token, nullptr) == LibsecretKeychain::interactionNotAllowed);
    CHECK(keychain.update(token, "x") == LibsecretKeychain::interactionNotAllowed);
    CHECK(keychain.remove(token) == LibsecretKeychain::interactionNotAllowed);
    CHECK(keychain.add({token.service, "appleEmail"}, "x", whenUnlocked) ==
          LibsecretKeychain::interactionNotAllowed);
    keyring.loop.runPending();
    CHECK(prompter.calls == 0);
    keyring.unlock();
    CHECK(dataOf(keychain) == "secret");
}

TEST_CASE("a keyring without a collection to write to is a status, and asks the user nothing") {
    Keyring keyring(Keyring::Login::withoutPassword);
    LibsecretKeychain keychain(forAsLongAsItTakes);
    const SilentService prompter = prompterOn(keyring.bus);
    CHECK(keychain.add(token, "secret", whenUnlocked) == LibsecretKeychain::notAvailable);
    CHECK(keychain.copyMatching(token, nullptr) == Keychain::itemNotFound);
    keyring.loop.runPending();
    CHECK(prompter.calls == 0);
}

TEST_CASE("a service that hangs keeps nobody waiting, and costs one wait alone") {
    Keyring keyring;
    LibsecretKeychain keychain(200ms);
    keyring.loop.runUntil(
        [&] { return keychain.add(token, "secret", whenUnlocked) != LibsecretKeychain::notAvailable; });
    keyring.daemon().signal(SIGSTOP);
    const auto begin = steady_clock::now();
    CHECK(keychain.copyMatching(token, nullptr) == LibsecretKeychain::notAvailable);
    // Were each of them to wait, they would take longer than D-Bus.
    for (int i = 0; i < 1000; ++i) {
        REQUIRE(keychain.update(token, "x") == LibsecretKeychain::notAvailable);
    }
    CHECK(steady_clock::now() - begin < patienceOfDBus);
    keyring.daemon().signal(SIGCONT);
    std::string data;
    CHECK(keyring.loop.runUntil([&] { return keychain.copyMatching(token, &data) == Keychain::success; }));
    CHECK(data == "secret");
}

TEST_CASE("several threads that ask a service that hangs all come back") {
    Keyring keyring;
    LibsecretKeychain keychain(200ms);
    keyring.daemon().signal(SIGSTOP);
    const auto begin = steady_clock::now();
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(
            [&] { CHECK(keychain.copyMatching(token, nullptr) == LibsecretKeychain::notAvailable); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    CHECK(steady_clock::now() - begin < patienceOfDBus);
}

TEST_CASE("a keychain can be destroyed while its service hangs") {
    Keyring keyring;
    std::optional<LibsecretKeychain> keychain(std::in_place, 50ms);
    keyring.daemon().signal(SIGSTOP);
    CHECK(keychain->copyMatching(token, nullptr) == LibsecretKeychain::notAvailable);
    const auto begin = steady_clock::now();
    keychain.reset();
    CHECK(steady_clock::now() - begin < patienceOfDBus);
}

TEST_CASE("a service that was killed is a status, and its successor is used") {
    Keyring keyring;
    LibsecretKeychain keychain(forAsLongAsItTakes);
    REQUIRE(keychain.add(token, "secret", whenUnlocked) == Keychain::success);
    keyring.killDaemon();
    CHECK(keychain.copyMatching(token, nullptr) == LibsecretKeychain::notAvailable);
    CHECK(keychain.add(token, "x", whenUnlocked) == LibsecretKeychain::notAvailable);
    keyring.startDaemon();
    CHECK(dataOf(keychain) == "secret");
    CHECK(keychain.update(token, "changed") == Keychain::success);
    // Also without a call in between that would have noticed.
    keyring.killDaemon();
    keyring.startDaemon();
    CHECK(dataOf(keychain) == "changed");
}

TEST_CASE("any thread may call") {
    Keyring keyring;
    LibsecretKeychain keychain(forAsLongAsItTakes);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            const KeychainQuery query{token.service, "account " + std::to_string(i)};
            const std::string value = "value " + std::to_string(i);
            std::string data;
            CHECK(keychain.add(query, value, whenUnlocked) == Keychain::success);
            CHECK(keychain.copyMatching(query, &data) == Keychain::success);
            CHECK(data == value);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

} // namespace cadora::test
