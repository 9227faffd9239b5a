#include "app/AppDelegate.h"
#include "hosts/macos/AVFoundationMediaFramework.h"
#include "hosts/macos/AppKitApplication.h"
#include "hosts/macos/AuthenticationServicesWebAuthentication.h"
#include "hosts/macos/DispatchBackgroundExecutor.h"
#include "hosts/macos/DispatchClock.h"
#include "hosts/macos/DispatchMainActor.h"
#include "hosts/macos/FoundationFileManager.h"
#include "hosts/macos/NSURLSessionURLSession.h"
#include "hosts/macos/NSUserDefaultsUserDefaults.h"
#include "hosts/macos/NSWorkspaceWorkspace.h"
#include "hosts/macos/OSLogSystemLog.h"
#include "hosts/macos/SecItemKeychain.h"
#include "hosts/macos/SecRandomSource.h"
#include "hosts/macos/SpawnProcessLauncher.h"
#include "hosts/macos/UserNotificationsCenter.h"
#include "platform/Platform.h"
#include "sharing/SharedPlatform.h"

#import <AppKit/AppKit.h>

// Hands the application's events to the core.
@interface CadoraApplicationDelegate : NSObject <NSApplicationDelegate>
// Both must outlive this object.
- (instancetype)initWithDelegate:(cadora::AppDelegate*)delegate
                      urlSession:(cadora::NSURLSessionURLSession*)urlSession NS_DESIGNATED_INITIALIZER;
- (instancetype)init NS_UNAVAILABLE;
@end

@implementation CadoraApplicationDelegate {
    cadora::AppDelegate* _delegate;
    cadora::NSURLSessionURLSession* _urlSession;
}

- (instancetype)initWithDelegate:(cadora::AppDelegate*)delegate
                      urlSession:(cadora::NSURLSessionURLSession*)urlSession {
    if (self = [super init]) {
        _delegate = delegate;
        _urlSession = urlSession;
    }
    return self;
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
    _delegate->applicationDidFinishLaunching();
}

- (BOOL)applicationShouldHandleReopen:(NSApplication*)sender hasVisibleWindows:(BOOL)hasVisibleWindows {
    return _delegate->applicationShouldHandleReopen(hasVisibleWindows);
}

// The program restores no state; the system wants to hear that it would do so securely.
- (BOOL)applicationSupportsSecureRestorableState:(NSApplication*)application {
    return YES;
}

// -terminate: ends the process without the ends of what main has made.
- (void)applicationWillTerminate:(NSNotification*)notification {
    _urlSession->removeTemporaryFiles();
}

@end

int main() {
    using namespace cadora;
    @autoreleasepool {
        DispatchMainActor mainActor;
        DispatchClock clock;
        DispatchBackgroundExecutor background;
        FoundationFileManager fileManager;
        SecRandomSource random;
        OSLogSystemLog systemLog;
        NSUserDefaultsUserDefaults userDefaults;
        SecItemKeychain keychain;
        NSURLSessionURLSession urlSession(mainActor);
        AVFoundationMediaFramework mediaFramework(mainActor);
        UserNotificationsCenter notificationCenter;
        AppKitApplication application(mainActor);
        AuthenticationServicesWebAuthentication webAuthentication;
        NSWorkspaceWorkspace workspace;
        SpawnProcessLauncher processLauncher;
        const Platform platform{mainActor,
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
        const SharedPlatform shared(platform);
        Platform::install(&shared.platform());

        AppDelegate delegate;
        // The application refers to it weakly, and what is not used any more may otherwise go before its
        // scope.
        __attribute__((objc_precise_lifetime)) CadoraApplicationDelegate* const applicationDelegate =
            [[CadoraApplicationDelegate alloc] initWithDelegate:&delegate urlSession:&urlSession];
        NSApplication* const sharedApplication = [NSApplication sharedApplication];
        sharedApplication.delegate = applicationDelegate;
        application.setActivationPolicy(Application::ActivationPolicy::accessory);
        // The program ends in here: -terminate: does not return.
        [sharedApplication run];
    }
    return 0;
}
