#pragma once

#include "base/Task.h"
#include "platform/WebAuthentication.h"

#include <memory>
#include <string>
#include <vector>

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
    // A visit does not end another one that is under way: each task gets its own answer, unless
    // cancelVisits() comes first. The anchor and the platform's session are kept until the next visit. The
    // controller must outlive the task's sessions.
    Task<URL> authenticate(URL startURL, std::string callbackScheme, std::shared_ptr<Window> anchor);

    // Ends every visit that is under way as one that the user gave up.
    void cancelVisits();

    // The anchor of the latest visit, else the program's first window, else a window that is never shown.
    std::shared_ptr<Window> presentationAnchor() override;

private:
    struct Visit {
        std::shared_ptr<WebAuthenticationSession> session;
    };

    std::shared_ptr<Visit> addVisit();

    // Those under way: each belongs to its task.
    std::vector<std::weak_ptr<Visit>> visits_;
    std::shared_ptr<Window> anchorWindow_;
    std::shared_ptr<WebAuthenticationSession> session_;
};

} // namespace cadora
