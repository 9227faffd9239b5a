#pragma once

#include "base/Task.h"
#include "platform/WebAuthentication.h"

#include <memory>
#include <string>

namespace cadora {

// Carries out visits to the service's sign-in page. Main actor only.
class WebAuthController : public PresentationContextProvider {
public:
    WebAuthController() = default;
    WebAuthController(const WebAuthController&) = delete;
    WebAuthController& operator=(const WebAuthController&) = delete;

    // Presents `startURL` over `anchor`, which may be null, and yields the URL of the scheme to which the
    // page leads. Throws the platform's error unchanged, the user's cancellation among them (see
    // WebAuthenticationSession), and AuthError::badResponse when the page can't be presented or the visit
    // ends with nothing.
    //
    // A visit does not end another one that is under way: each task gets its own answer. The anchor and the
    // platform's session are kept until the next visit. The controller must outlive the task's sessions.
    Task<URL> authenticate(URL startURL, std::string callbackScheme, std::shared_ptr<Window> anchor);

    // The anchor of the latest visit, else the program's first window, else a window that is never shown.
    std::shared_ptr<Window> presentationAnchor() override;

private:
    std::shared_ptr<Window> anchorWindow_;
    std::shared_ptr<WebAuthenticationSession> session_;
};

} // namespace cadora
