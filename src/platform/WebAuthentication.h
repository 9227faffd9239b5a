#pragma once

#include "base/URL.h"
#include "platform/Window.h"

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace cadora {

// Says over which window a sign-in is presented. Asked on the main actor.
class PresentationContextProvider {
public:
    virtual ~PresentationContextProvider() = default;

    // Never null.
    virtual std::shared_ptr<Window> presentationAnchor() = 0;
};

// One visit to a sign-in page, which ends when the page leads to a URL of the callback's scheme. Main actor
// only. Releasing a session does not end it: its handler is still called.
class WebAuthenticationSession {
public:
    // What a session that the user gave up ends with.
    static constexpr const char* errorDomain = "com.apple.AuthenticationServices.WebAuthenticationSession";
    static constexpr long long canceledLogin = 1;

    virtual ~WebAuthenticationSession() = default;

    // The provider must outlive the session's presentation.
    virtual void setPresentationContextProvider(PresentationContextProvider& provider) = 0;

    // False when the page can't be presented; the handler is not called then.
    virtual bool start() = 0;

    // Ends a visit that is under way as if the user had given it up; the handler is called with that error.
    // Does nothing before the start and after the end.
    virtual void cancel() = 0;
};

class WebAuthentication {
public:
    // Called once, on any thread: with the callback's URL, or an error (a PlatformError), or neither.
    using CompletionHandler = std::function<void(std::optional<URL> callbackURL, std::exception_ptr error)>;

    virtual ~WebAuthentication() = default;

    // Neither the URLs nor what they carry go to a log or a file.
    virtual std::shared_ptr<WebAuthenticationSession>
    makeSession(const URL& url, const std::string& callbackURLScheme, CompletionHandler handler) = 0;
};

} // namespace cadora
