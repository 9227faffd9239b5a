#include "auth/AuthService.h"

#include "api/AuthError.h"
#include "auth/AuthCallback.h"
#include "auth/KeychainStore.h"
#include "base/Deployment.h"

#include <utility>

namespace cadora {

namespace {

constexpr const char* signInPath = "/auth/apple/desktop";
constexpr const char* callbackURLScheme = "cadora";

void store(const AuthCallback::Success& session) {
    KeychainStore::set(session.token, KeychainStore::Key::cadoraToken);
    KeychainStore::set(session.userId, KeychainStore::Key::cadoraUserId);
    if (session.email) {
        KeychainStore::set(session.email, KeychainStore::Key::appleEmail);
    }
}

} // namespace

AuthService& AuthService::shared() {
    // Never destroyed: at the process' end the toolkit goes before the window that is kept here.
    static AuthService& service = *new AuthService;
    return service;
}

Task<void> AuthService::signInWithApple(std::shared_ptr<Window> anchor) {
    URL startURL = URL::constant(deployment::siteOrigin() + signInPath);
    const URL callbackURL =
        co_await web_.authenticate(std::move(startURL), callbackURLScheme, std::move(anchor));
    const AuthCallback::Outcome outcome = AuthCallback::parse(callbackURL);
    if (const auto* session = std::get_if<AuthCallback::Success>(&outcome)) {
        store(*session);
        // One that went on waiting would take the next callback, whoever sends it, and replace the account.
        web_.cancelVisits();
    } else if (std::holds_alternative<AuthCallback::NoAccount>(outcome)) {
        throw AuthError::noAccount();
    } else {
        throw AuthError::badResponse();
    }
}

void AuthService::signOut() {
    for (const char* account : KeychainStore::Key::all) {
        KeychainStore::set(std::nullopt, account);
    }
}

} // namespace cadora
