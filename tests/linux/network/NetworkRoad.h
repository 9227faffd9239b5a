#pragma once

#include "base/Task.h"
#include "fakes/Awaiting.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeKeychain.h"
#include "fakes/FakeMediaFramework.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/FakeWebAuthentication.h"
#include "fakes/InlineBackgroundExecutor.h"
#include "fakes/ManualClock.h"
#include "fakes/Recorders.h"
#include "fakes/TemporaryDirectory.h"
#include "fakes/WaitingMainActor.h"
#include "hosts/linux/files/PosixFileManager.h"
#include "hosts/linux/network/CurlURLSession.h"
#include "platform/Platform.h"
#include "service/ServiceProcess.h"

#include <doctest/doctest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

using namespace std::chrono_literals;

// What the core under test takes for the origin of the service's API.
void setAPIOrigin(const std::string& origin);

// Sends what it is given, except that it waits for a stalled server for a second instead of the minute that
// every request of this program asks for.
class HastyURLSession : public URLSession {
public:
    explicit HastyURLSession(URLSession& session) : session_(session) {}

    CancelAction data(URLRequest request, Completion<Answer> completion) override {
        return session_.data(hastened(std::move(request)), std::move(completion));
    }
    CancelAction upload(URLRequest request, std::filesystem::path fromFile,
                        Completion<Answer> completion) override {
        ++uploads;
        return session_.upload(hastened(std::move(request)), std::move(fromFile), std::move(completion));
    }

    // Attempts, also those that never came to a connection.
    int uploads = 0;

private:
    static URLRequest hastened(URLRequest request) {
        CHECK(request.timeoutInterval == 60s);
        request.timeoutInterval = 1s;
        return request;
    }

    URLSession& session_;
};

// The core over real HTTP: the stand-in of the service on one side, signed in, and a clock that stands still.
class NetworkRoad {
public:
    NetworkRoad() {
        setAPIOrigin(service.origin());
        keychain.store("cadoraToken", ServiceProcess::token);
        keychain.store("cadoraUserId", ServiceProcess::userId);
        Platform::install(&platform_);
    }
    NetworkRoad(const NetworkRoad&) = delete;
    NetworkRoad& operator=(const NetworkRoad&) = delete;
    ~NetworkRoad() { Platform::install(nullptr); }

    // Runs the task to its end; waits on the clock pass as soon as they begin.
    template <class T> auto await(Task<T> task) {
        const auto outcome = begin(std::move(task));
        CHECK(settle([&] { return outcome->ended(); }));
        return *outcome;
    }

    template <class T> auto begin(Task<T> task) {
        using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;
        auto outcome = std::make_shared<Outcome<Value>>();
        started.push_back(actor.start(recordOutcome(std::move(task), outcome)));
        return outcome;
    }

    template <class Condition> bool settle(Condition condition) {
        while (actor.runUntil([&] { return condition() || clock.sleeperCount() > 0; })) {
            if (condition()) {
                return true;
            }
            clock.advance(clock.sleeps.back());
        }
        return false;
    }

    ServiceProcess service;
    TemporaryDirectory home;
    InlineBackgroundExecutor background;
    ManualClock clock;
    PosixFileManager fileManager{home.path() / "data"};
    SequenceRandomSource random;
    RecordingSystemLog systemLog;
    FakeUserDefaults userDefaults;
    FakeKeychain keychain;
    RecordingNotificationCenter notificationCenter;
    FakeApplication application;
    FakeWebAuthentication webAuthentication;
    RecordingWorkspace workspace;
    RecordingProcessLauncher processLauncher;
    WaitingMainActor actor;
    FakeMediaFramework mediaFramework{actor};
    // No connection is kept: one that was would be replaced when the service closes it, and a fault go by
    // unnoticed.
    CurlURLSession curl{actor, {std::size_t{1024} * 1024, {}, 0ms}};
    HastyURLSession urlSession{curl};
    std::vector<StartedTask> started;

private:
    Platform platform_{actor,
                       background,
                       clock,
                       fileManager,
                       random,
                       systemLog,
                       userDefaults,
                       keychain,
                       urlSession,
                       mediaFramework,
                       notificationCenter,
                       application,
                       webAuthentication,
                       workspace,
                       processLauncher};
};

} // namespace cadora::test
