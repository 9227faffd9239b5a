#pragma once

#include "base/MainActor.h"
#include "platform/Application.h"
#include "platform/BackgroundExecutor.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"
#include "platform/Keychain.h"
#include "platform/MediaFramework.h"
#include "platform/ProcessLauncher.h"
#include "platform/RandomSource.h"
#include "platform/SystemLog.h"
#include "platform/URLSession.h"
#include "platform/UserDefaults.h"
#include "platform/UserNotificationCenter.h"
#include "platform/WebAuthentication.h"
#include "platform/Workspace.h"

namespace cadora {

// The one place where the platform is gathered. A host's main builds its adapters and installs them before
// anything else runs; a test installs its fakes. The adapters outlive everything that uses them.
struct Platform {
    MainActor& mainActor;
    BackgroundExecutor& background;
    Clock& clock;
    FileManager& fileManager;
    RandomSource& random;
    SystemLog& systemLog;
    UserDefaults& userDefaults;
    Keychain& keychain;
    URLSession& urlSession;
    MediaFramework& mediaFramework;
    UserNotificationCenter& notificationCenter;
    Application& application;
    WebAuthentication& webAuthentication;
    Workspace& workspace;
    ProcessLauncher& processLauncher;

    // Null takes the platform away again.
    static void install(const Platform* platform);

    // Using the platform before it is installed is a programming error and ends the program.
    static const Platform& current();
};

} // namespace cadora
