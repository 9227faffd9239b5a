#include "api/AuthenticatedRequest.h"

#include "api/AuthError.h"
#include "auth/KeychainStore.h"
#include "platform/Platform.h"

namespace cadora {

void AuthenticatedRequest::applyHeaders(URLRequest& to) {
    if (const auto token = KeychainStore::get(KeychainStore::Key::cadoraToken)) {
        to.headers.setValue("Bearer " + *token, "Authorization");
    }
    if (const auto userId = KeychainStore::get(KeychainStore::Key::cadoraUserId)) {
        to.headers.setValue(*userId, "X-Cadora-User-Id");
    }
    to.headers.setValue("application/json", "Accept");
}

Task<URLSession::Answer> AuthenticatedRequest::send(URLRequest request) {
    const Platform& platform = Platform::current();
    // The keychain may take its time to answer, so it is asked off the main thread.
    auto signing = runInBackground(platform.mainActor, platform.background, [request] {
        URLRequest copy = request;
        applyHeaders(copy);
        return copy;
    });
    request = co_await signing;
    OperationAwaiter<URLSession::Answer> sending(
        platform.mainActor, [&](Completion<URLSession::Answer> completion) {
            return platform.urlSession.data(request, std::move(completion));
        });
    URLSession::Answer answer = co_await sending;
    if (!answer.response.statusCode) {
        throw AuthError::badResponse();
    }
    if (answer.response.statusCode == 401) {
        throw AuthError::refreshRequiresUI();
    }
    co_return answer;
}

} // namespace cadora
