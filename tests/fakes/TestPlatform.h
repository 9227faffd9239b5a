#pragma once

#include "fakes/FakeApplication.h"
#include "fakes/FakeKeychain.h"
#include "fakes/FakeMediaFramework.h"
#include "fakes/FakeURLSession.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/FakeWebAuthentication.h"
#include "fakes/InlineBackgroundExecutor.h"
#include "fakes/ManualClock.h"
#include "fakes/ManualMainActor.h"
#include "fakes/Recorders.h"
#include "fakes/RecordingFileManager.h"
#include "fakes/TemporaryDirectory.h"
#include "fakes/Trace.h"

#include "platform/Platform.h"

namespace cadora::test {

// A platform of fakes over a real file system, installed for as long as it lives. Make it before anything
// that uses the platform.
class TestPlatform {
public:
    TestPlatform() {
        fileManager.trace = userDefaults.trace = keychain.trace = notificationCenter.trace =
            application.trace = workspace.trace = processLauncher.trace = mainActor.trace = trace;
        Platform::install(&platform_);
    }
    TestPlatform(const TestPlatform&) = delete;
    TestPlatform& operator=(const TestPlatform&) = delete;
    ~TestPlatform() { Platform::install(nullptr); }

    // Shared by the fakes.
    Trace trace;
    TemporaryDirectory home;
    InlineBackgroundExecutor background;
    ManualClock clock;
    RecordingFileManager fileManager{home.path() / "data"};
    SequenceRandomSource random;
    RecordingSystemLog systemLog;
    FakeUserDefaults userDefaults;
    FakeKeychain keychain;
    RecordingNotificationCenter notificationCenter;
    FakeApplication application;
    FakeWebAuthentication webAuthentication;
    RecordingWorkspace workspace;
    RecordingProcessLauncher processLauncher;

    FakeURLSession urlSession{mainActor};
    FakeMediaFramework mediaFramework{mainActor};
    // The last to be made and the first to go: tasks that still wait call off their steps at the fakes above.
    ManualMainActor mainActor;

private:
    Platform platform_{mainActor,
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
