#include "hosts/linux/keyring/SecretServiceUnlock.h"

#include "linux/SilentService.h"
#include "linux/keyring/Keyring.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

namespace cadora::test {

namespace {

// What asks the user for a password, and gets no answer.
struct Asking {
    explicit Asking(Keyring::Login login = Keyring::Login::withPassword) : keyring(login) {}

    Keyring keyring;
    SilentService prompter{keyring.bus.connect(), "org.gnome.keyring.SystemPrompter",
                           "/org/gnome/keyring/Prompter"};
    SecretServiceUnlock unlock{keyring.bus.connect()};
    std::vector<std::string> problems;

    CancelAction begin() {
        return unlock.unlock("", [this](const std::string& problem) { problems.push_back(problem); });
    }
    bool untilEnded() {
        return keyring.loop.runUntil([this] { return !problems.empty(); });
    }
    bool untilAsked() {
        return keyring.loop.runUntil([this] { return prompter.calls > 0; });
    }
};

} // namespace

TEST_CASE("a keyring that is open asks nothing") {
    Asking asking;
    asking.begin();
    CHECK(asking.problems.empty());
    REQUIRE(asking.untilEnded());
    CHECK(asking.problems == std::vector<std::string>{""});
    CHECK(asking.prompter.calls == 0);
}

TEST_CASE("a locked keyring asks the user, while the event loop goes on, until that is called off") {
    Asking asking;
    asking.keyring.lock();
    const CancelAction callOff = asking.begin();
    REQUIRE(asking.untilAsked());
    CHECK(asking.problems.empty());
    callOff();
    asking.keyring.loop.runPending();
    CHECK(asking.problems.empty());
}

TEST_CASE("where there is no keyring to write to, the user is asked to make one") {
    Asking asking(Keyring::Login::withoutPassword);
    const CancelAction callOff = asking.begin();
    CHECK(asking.untilAsked());
    CHECK(asking.problems.empty());
    callOff();
}

TEST_CASE("a prompter that fails is told") {
    Asking asking;
    asking.keyring.lock();
    const CancelAction callOff = asking.begin();
    REQUIRE(asking.untilAsked());
    asking.prompter.crash();
    REQUIRE(asking.untilEnded());
    CHECK(asking.problems.size() == 1);
    CHECK_FALSE(asking.problems.front().empty());
}

TEST_CASE("a desktop without a Secret Service is told") {
    Asking asking;
    asking.keyring.killDaemon();
    asking.begin();
    REQUIRE(asking.untilEnded());
    REQUIRE(asking.problems.size() == 1);
    CHECK(asking.problems.front().find("Install the package gnome-keyring") != std::string::npos);
}

TEST_CASE("where nobody serves secrets Plasma's wallet is started, and asked once it does") {
    Asking asking;
    asking.keyring.killDaemon();
    // One that runs under its own name, as it does a moment before it serves.
    auto wallet = asking.keyring.bus.connect();
    asking.keyring.bus.addService("org.kde.kwalletd5", "/bin/false");
    REQUIRE(wallet.registerService("org.kde.kwalletd5"));
    const CancelAction callOff = asking.begin();
    asking.keyring.loop.runPending();
    SilentService service(asking.keyring.bus.connect(), "org.freedesktop.secrets",
                          "/org/freedesktop/secrets");
    CHECK(asking.keyring.loop.runUntil([&] { return service.calls > 0; }));
    CHECK(asking.problems.empty());
    callOff();
}

} // namespace cadora::test
