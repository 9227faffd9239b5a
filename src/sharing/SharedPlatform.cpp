#include "sharing/SharedPlatform.h"

namespace cadora {

SharedPlatform::SharedPlatform(const Platform& host)
    : rounds_(std::make_shared<Rounds>(host.mainActor)), fileManager_(host.fileManager),
      keychain_(host.keychain, rounds_), background_(host.background, host.mainActor, rounds_),
      clock_(host.clock, rounds_), urlSession_(host.urlSession, host.fileManager, rounds_),
      mediaFramework_(host.mediaFramework, fileManager_, host.mainActor, rounds_),
      platform_{host.mainActor,
                background_,
                clock_,
                fileManager_,
                host.random,
                host.systemLog,
                host.userDefaults,
                keychain_,
                urlSession_,
                mediaFramework_,
                host.notificationCenter,
                host.application,
                host.webAuthentication,
                host.workspace,
                host.processLauncher} {}

SharedPlatform::~SharedPlatform() {
    rounds_->end();
}

} // namespace cadora
