#include "contract/FileManagerUnderTest.h"
#include "contract/KeychainUnderTest.h"
#include "contract/MainActorUnderTest.h"
#include "contract/MediaFrameworkUnderTest.h"
#include "contract/URLSessionUnderTest.h"
#include "contract/UserDefaultsUnderTest.h"
#include "contract/WaveFile.h"
#include "contract/WorkspaceUnderTest.h"
#include "fakes/TemporaryDirectory.h"
#include "fakes/WaitingMainActor.h"
#include "hosts/macos/AVFoundationMediaFramework.h"
#include "hosts/macos/DispatchMainActor.h"
#include "hosts/macos/FoundationFileManager.h"
#include "hosts/macos/FoundationText.h"
#include "hosts/macos/NSURLSessionURLSession.h"
#include "hosts/macos/NSUserDefaultsUserDefaults.h"
#include "hosts/macos/NSWorkspaceWorkspace.h"
#include "hosts/macos/SecItemKeychain.h"

#include <doctest/doctest.h>

#include <chrono>
#include <functional>
#include <utility>

#include <dispatch/dispatch.h>

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#import <Security/Security.h>

namespace cadora::test {

namespace {

class SecItemKeychainUnderTest : public KeychainUnderTest {
public:
    SecItemKeychainUnderTest() {
        removeItems();
        const KeychainQuery query{service, "probe", true};
        // A program without the entitlements has only the file-based keychain to show what it can.
        dataProtection_ = keychain_.copyMatching(query, nullptr) != errSecMissingEntitlement;
        MESSAGE("the items are in the ", dataProtection_ ? "data-protection" : "file-based", " keychain");
    }
    SecItemKeychainUnderTest(const SecItemKeychainUnderTest&) = delete;
    SecItemKeychainUnderTest& operator=(const SecItemKeychainUnderTest&) = delete;
    ~SecItemKeychainUnderTest() override { removeItems(); }

    Keychain& keychain() override { return keychain_; }
    bool useDataProtectionKeychain() const override { return dataProtection_; }

private:
    void removeItems() {
        for (const char* itemService : {service, otherService}) {
            for (const char* account : {"cadoraToken", "cadoraUserId"}) {
                keychain_.remove({itemService, account, true});
                keychain_.remove({itemService, account, false});
            }
        }
    }

    SecItemKeychain keychain_;
    bool dataProtection_ = true;
};

// Lets the main thread's run loop, and with it the main queue, go on until the condition holds.
bool runLoopUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
    }
    return true;
}

class DispatchMainActorUnderTest : public MainActorUnderTest {
public:
    std::unique_ptr<MainActor> makeActor() override { return std::make_unique<DispatchMainActor>(); }

    void runPending() override {
        const auto isLast = std::make_shared<bool>(false);
        dispatch_async(dispatch_get_main_queue(), ^{
          *isLast = true;
        });
        REQUIRE(runLoopUntil([isLast] { return *isLast; }));
    }
};

class AVFoundationUnderTest : public MediaFrameworkUnderTest {
public:
    const char* name() const override { return "AVFoundation"; }
    MediaFramework& framework() override { return framework_; }
    std::filesystem::path soundFile() override { return directory_.file("song.wav", waveFile(44100)); }
    std::filesystem::path otherFile() override {
        return directory_.file("letter.txt", "Dear reader, this is no song.\n");
    }
    std::filesystem::path output() override { return directory_.path() / "recording.m4a"; }
    bool runUntil(const std::function<bool()>& condition) override { return actor_.runUntil(condition); }
    void runPosted() override { actor_.runPosted(); }

private:
    TemporaryDirectory directory_;
    WaitingMainActor actor_;
    AVFoundationMediaFramework framework_{actor_};
};

class NSUserDefaultsUnderTest : public UserDefaultsUnderTest {
public:
    NSUserDefaultsUnderTest() { clear(); }
    NSUserDefaultsUnderTest(const NSUserDefaultsUnderTest&) = delete;
    NSUserDefaultsUnderTest& operator=(const NSUserDefaultsUnderTest&) = delete;
    ~NSUserDefaultsUnderTest() override { clear(); }

    UserDefaults& defaults() override { return *standard_.suite(suiteName); }

private:
    static constexpr const char* suiteName = "com.norvelant.cadora.tests";

    static void clear() {
        [[NSUserDefaults standardUserDefaults] removePersistentDomainForName:nsString(suiteName)];
    }

    NSUserDefaultsUserDefaults standard_;
};

class NSWorkspaceUnderTest : public WorkspaceUnderTest {
public:
    Workspace& workspace() override { return workspace_; }
    std::filesystem::path folder() override { return directory_.path(); }
    bool runUntil(std::function<void()> job, const std::function<bool()>& condition) override {
        actor_.post(std::move(job));
        bool begun = false;
        actor_.post([&begun] { begun = true; });
        return runLoopUntil([&] { return begun && condition(); });
    }

private:
    DispatchMainActor actor_;
    TemporaryDirectory directory_;
    NSWorkspaceWorkspace workspace_;
};

} // namespace

std::unique_ptr<FileManager> makeFileManager() {
    return std::make_unique<FoundationFileManager>(std::nullopt);
}

std::unique_ptr<KeychainUnderTest> makeKeychainUnderTest() {
    return std::make_unique<SecItemKeychainUnderTest>();
}

std::unique_ptr<MainActorUnderTest> makeMainActorUnderTest() {
    return std::make_unique<DispatchMainActorUnderTest>();
}

std::vector<std::unique_ptr<MediaFrameworkUnderTest>> mediaFrameworksUnderTest() {
    std::vector<std::unique_ptr<MediaFrameworkUnderTest>> all;
    all.push_back(hostsMediaFramework());
    return all;
}

std::unique_ptr<MediaFrameworkUnderTest> hostsMediaFramework() {
    return std::make_unique<AVFoundationUnderTest>();
}

std::unique_ptr<URLSession> makeURLSession(MainActor& actor) {
    return std::make_unique<NSURLSessionURLSession>(actor);
}

std::unique_ptr<UserDefaultsUnderTest> makeUserDefaultsUnderTest() {
    return std::make_unique<NSUserDefaultsUnderTest>();
}

std::unique_ptr<WorkspaceUnderTest> makeWorkspaceUnderTest() {
    return std::make_unique<NSWorkspaceUnderTest>();
}

} // namespace cadora::test
