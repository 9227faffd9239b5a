#include "app/Uninstaller.h"

#include "fakes/TestPlatform.h"
#include "outbox/OutboxStore.h"

#include <doctest/doctest.h>

#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#include <thread>

#include <unistd.h>

using namespace cadora;
using test::TestPlatform;

namespace {

using Steps = std::vector<std::string>;

// An installed program with the entry in the desktop's menus.
struct Installation {
    Installation() {
        auto pbs = std::make_unique<test::FakeUserDefaults>();
        pbs->values.emplace("NSServicesStatus", PropertyDictionary{});
        pbs->trace = platform.trace;
        platform.userDefaults.suites["pbs"] = std::move(pbs);
        platform.application.bundle = "/opt/Cadora Helper";
        platform.application.registrationTool = "/opt/Cadora Helper/bin/register";
        platform.processLauncher.executables = {"/opt/Cadora Helper/bin/register"};
    }

    std::filesystem::path data() const { return platform.home.path() / "data" / "Cadora"; }

    // The main actor's turn after the Trash has answered.
    void finish() {
        platform.workspace.recycleHandler();
        platform.mainActor.runUntilIdle();
    }

    bool isTerminated() const {
        const auto& calls = platform.application.calls;
        return !calls.empty() && calls.back() == "terminate";
    }

    TestPlatform platform;
};

// Uninstalls in a process of its own. Gives the signal that ended it, or 0.
int signalOfUninstalling() {
    const pid_t pid = fork();
    if (pid == 0) {
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        std::signal(SIGABRT, SIG_DFL); // the test framework's handler would report it as a failure
        Uninstaller::run();
        _exit(EXIT_SUCCESS);
    }
    REQUIRE(pid > 0);
    int status = 0;
    REQUIRE(waitpid(pid, &status, 0) == pid);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

} // namespace

TEST_CASE("uninstalling takes everything away in order, and ends the program when the Trash has answered") {
    Installation installation;
    installation.platform.keychain.store("cadoraToken", "t");
    Uninstaller::run();
    const Steps removal{"remove cadoraToken",
                        "remove cadoraUserId",
                        "remove appleUserId",
                        "remove appleEmail",
                        "removeItem " + installation.data().string(),
                        "set NSServicesStatus",
                        "updateDynamicServices",
                        "run /opt/Cadora Helper/bin/register -u /opt/Cadora Helper",
                        "recycle /opt/Cadora Helper"};
    CHECK(installation.platform.trace.steps() == removal);
    CHECK_FALSE(installation.platform.mainActor.runTurn());

    installation.platform.trace.clear();
    installation.platform.workspace.recycleHandler();
    CHECK_FALSE(installation.isTerminated());
    installation.platform.mainActor.runUntilIdle();
    CHECK(installation.platform.trace.steps() == Steps{"post", "terminate"});
}

TEST_CASE("uninstalling deletes the outbox and whatever else the program kept beside it") {
    Installation installation;
    OutboxStore store;
    store.stage(installation.platform.home.file("song.wav", "x"), "private");
    installation.platform.home.file("data/Cadora/other", "x");
    installation.platform.home.file("data/Another Program/kept", "x");
    Uninstaller::run();
    CHECK_FALSE(std::filesystem::exists(installation.data()));
    CHECK(std::filesystem::exists(installation.platform.home.path() / "data/Another Program/kept"));
    CHECK(std::filesystem::exists(installation.platform.home.path() / "song.wav"));
}

TEST_CASE("uninstalling with an empty outbox says nothing") {
    Installation installation;
    const OutboxStore store;
    Uninstaller::run();
    installation.finish();
    CHECK_FALSE(std::filesystem::exists(installation.data()));
    CHECK(installation.isTerminated());
    CHECK(installation.platform.systemLog.lines.empty());
    CHECK(installation.platform.application.alerts.empty());
    CHECK(installation.platform.notificationCenter.requests.empty());
}

TEST_CASE("uninstalling without an outbox says nothing") {
    Installation installation;
    REQUIRE_FALSE(std::filesystem::exists(installation.data()));
    Uninstaller::run();
    installation.finish();
    CHECK(installation.isTerminated());
    CHECK(installation.platform.systemLog.lines.empty());
    CHECK(installation.platform.application.alerts.empty());
    CHECK(installation.platform.notificationCenter.requests.empty());
}

TEST_CASE("without an executable registration tool, the program still goes to the Trash and ends") {
    Installation installation;
    installation.platform.processLauncher.executables.clear();
    Uninstaller::run();
    CHECK(installation.platform.processLauncher.commands.empty());
    CHECK(installation.platform.workspace.recycledItems ==
          std::vector<std::filesystem::path>{"/opt/Cadora Helper"});
    installation.finish();
    CHECK(installation.isTerminated());
}

TEST_CASE("a keychain that refuses, and no preferences of the menus, hold nothing up") {
    Installation installation;
    installation.platform.keychain.removeStatus = -25308;
    installation.platform.userDefaults.suites.clear();
    Uninstaller::run();
    CHECK(installation.platform.processLauncher.commands.size() == 1);
    installation.finish();
    CHECK(installation.isTerminated());
}

// A Trash that refused calls the same handler: it learns nothing of the outcome.
TEST_CASE("the program ends in a turn of its own, whichever thread the Trash answers on") {
    Installation installation;
    Uninstaller::run();
    std::thread(installation.platform.workspace.recycleHandler).join();
    CHECK_FALSE(installation.isTerminated());
    installation.platform.mainActor.runUntilIdle();
    CHECK(installation.isTerminated());
}

TEST_CASE("a system that knows no place for applications' data ends the process at once") {
    Installation installation;
    CHECK(signalOfUninstalling() == 0);
    installation.platform.fileManager.knowsApplicationSupport = false;
    CHECK(signalOfUninstalling() == SIGABRT);
}
