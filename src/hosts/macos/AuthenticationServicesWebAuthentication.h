#pragma once

#include "platform/WebAuthentication.h"

namespace cadora {

// ASWebAuthenticationSession: the user's default browser, or Safari, with the user's cookies.
class AuthenticationServicesWebAuthentication : public WebAuthentication {
public:
    std::shared_ptr<WebAuthenticationSession>
    makeSession(const URL& url, const std::string& callbackURLScheme, CompletionHandler handler) override;
};

} // namespace cadora
