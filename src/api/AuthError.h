#pragma once

#include "base/Error.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace cadora {

// Failures of sign-in and of the service's API.
class AuthError : public Error {
public:
    enum class Case {
        // The API answered with a status that the caller does not accept; carries the status.
        http,
        // No credentials are stored.
        notSignedIn,
        // The service rejected the stored credentials; only a new sign-in can help. They stay stored.
        refreshRequiresUI,
        // Kept for classification beside the two above; nothing raises it.
        refreshFailed,
        // An answer of the wrong shape: not HTTP, or a sign-in that yields nothing usable.
        badResponse,
        // The Apple ID used to sign in has no account on the service.
        noAccount,
    };

    static AuthError http(std::int64_t status) { return {Case::http, status}; }
    static AuthError notSignedIn() { return {Case::notSignedIn}; }
    static AuthError refreshRequiresUI() { return {Case::refreshRequiresUI}; }
    static AuthError refreshFailed() { return {Case::refreshFailed}; }
    static AuthError badResponse() { return {Case::badResponse}; }
    static AuthError noAccount() { return {Case::noAccount}; }

    Case errorCase() const { return case_; }
    // Of `http` alone.
    std::optional<std::int64_t> status() const { return status_; }

    std::string text() const override;

    friend bool operator==(const AuthError& a, const AuthError& b) {
        return a.case_ == b.case_ && a.status_ == b.status_;
    }

private:
    AuthError(Case errorCase, std::optional<std::int64_t> status = std::nullopt)
        : case_(errorCase), status_(status) {}

    Case case_;
    std::optional<std::int64_t> status_;
};

// Whether what was caught is AuthError::noAccount(), which users are told about in words of its own. A null
// pointer is a programming error.
bool isNoAccount(const std::exception_ptr& error);

} // namespace cadora
