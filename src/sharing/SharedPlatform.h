#pragma once

#include "platform/Platform.h"
#include "sharing/SharedBackgroundExecutor.h"
#include "sharing/SharedClock.h"
#include "sharing/SharedFileManager.h"
#include "sharing/SharedKeychain.h"
#include "sharing/SharedMediaFramework.h"
#include "sharing/SharedURLSession.h"

#include <memory>

namespace cadora {

// A platform for several passes over the same outbox: they are kept in step (Rounds), and what they ask for
// together is done once. It stands between a host's adapters and the program, which knows nothing of it.
class SharedPlatform {
public:
    // The host's adapters outlive this object, and no job of theirs runs after it.
    explicit SharedPlatform(const Platform& host);
    SharedPlatform(const SharedPlatform&) = delete;
    SharedPlatform& operator=(const SharedPlatform&) = delete;
    ~SharedPlatform();

    const Platform& platform() const { return platform_; }

private:
    std::shared_ptr<Rounds> rounds_;
    SharedFileManager fileManager_;
    SharedKeychain keychain_;
    SharedBackgroundExecutor background_;
    SharedClock clock_;
    SharedURLSession urlSession_;
    SharedMediaFramework mediaFramework_;
    Platform platform_;
};

} // namespace cadora
