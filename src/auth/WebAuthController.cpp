#include "auth/WebAuthController.h"

#include "api/AuthError.h"
#include "platform/Platform.h"

#include <utility>

namespace cadora {

namespace {

Result<URL> result(std::optional<URL> callbackURL, std::exception_ptr error) {
    if (callbackURL) {
        return *std::move(callbackURL);
    }
    if (error) {
        return error;
    }
    return failure<URL>(AuthError::badResponse());
}

} // namespace

Task<URL> WebAuthController::authenticate(URL startURL, std::string callbackScheme,
                                          std::shared_ptr<Window> anchor) {
    anchorWindow_ = std::move(anchor);
    const Platform& platform = Platform::current();
    const std::shared_ptr<Visit> visit = addVisit();
    OperationAwaiter<URL> ending(platform.mainActor, [&](Completion<URL> completion) -> CancelAction {
        visit->session = platform.webAuthentication.makeSession(
            startURL, callbackScheme,
            [&actor = platform.mainActor, completion](std::optional<URL> callbackURL,
                                                      std::exception_ptr error) {
                actor.post([completion, ended = result(std::move(callbackURL), std::move(error))] {
                    completion(ended);
                });
            });
        visit->session->setPresentationContextProvider(*this);
        session_ = visit->session;
        if (!visit->session->start()) {
            completion(failure<URL>(AuthError::badResponse()));
        }
        return nullptr;
    });
    co_return co_await ending;
}

void WebAuthController::cancelVisits() {
    for (const auto& reference : std::exchange(visits_, {})) {
        const auto visit = reference.lock();
        if (visit && visit->session) {
            visit->session->cancel();
        }
    }
}

std::shared_ptr<WebAuthController::Visit> WebAuthController::addVisit() {
    std::erase_if(visits_, [](const auto& reference) { return reference.expired(); });
    auto visit = std::make_shared<Visit>();
    visits_.push_back(visit);
    return visit;
}

std::shared_ptr<Window> WebAuthController::presentationAnchor() {
    if (anchorWindow_) {
        return anchorWindow_;
    }
    Application& application = Platform::current().application;
    const auto windows = application.windows();
    return windows.empty() ? application.makeWindow({}, nullptr) : windows.front();
}

} // namespace cadora
