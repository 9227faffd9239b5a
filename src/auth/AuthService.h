#pragma once

#include "auth/WebAuthController.h"
#include "base/Task.h"

#include <memory>

namespace cadora {

// The one place that signs the user in and out: what it does is to write and delete the credentials in
// KeychainStore. Nothing is told to anybody, and nothing is sent again; that is the callers' business. Main
// actor only.
class AuthService {
public:
    // The one service of the process, made on first use.
    static AuthService& shared();

    AuthService(const AuthService&) = delete;
    AuthService& operator=(const AuthService&) = delete;

    // Opens the service's sign-in page over `anchor`, which may be null, and stores the session that it
    // yields, over an earlier one if there is one. Whether the keychain takes it is not looked at. Every
    // other sign-in that waits then ends as cancelled.
    //
    // On an error nothing is stored, and an earlier session stays. AuthError::noAccount: the Apple ID has no
    // account, so trying again doesn't help. AuthError::badResponse: the page could not be presented, or
    // answered something else. Any other error is the platform's, the user's cancellation among them.
    Task<void> signInWithApple(std::shared_ptr<Window> anchor);

    // Deletes every credential. Harmless when there is none; a failure is not reported.
    void signOut();

private:
    AuthService() = default;

    WebAuthController web_;
};

} // namespace cadora
