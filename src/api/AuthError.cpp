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

} // namespace cadora
