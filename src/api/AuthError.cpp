#include "api/AuthError.h"

namespace cadora {

std::string AuthError::text() const {
    switch (case_) {
    case Case::http:
        return caseText("http", *status_);
    case Case::notSignedIn:
        return "notSignedIn";
    case Case::refreshRequiresUI:
        return "refreshRequiresUI";
    case Case::refreshFailed:
        return "refreshFailed";
    case Case::badResponse:
        return "badResponse";
    case Case::noAccount:
        return "noAccount";
    }
    return "unknown";
}

bool isNoAccount(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const AuthError& known) {
        return known == AuthError::noAccount();
    } catch (...) {
        return false;
    }
}

} // namespace cadora
