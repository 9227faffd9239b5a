#pragma once

#include "base/Task.h"
#include "platform/URLSession.h"

namespace cadora {

// Calls to the service's API with the stored credentials, which are read anew for every request.
class AuthenticatedRequest {
public:
    AuthenticatedRequest() = delete;

    // Sets "Authorization" and "X-Cadora-User-Id" from what the keychain holds (each only when it is there)
    // and "Accept", in place of values of the same names. Any thread.
    static void applyHeaders(URLRequest& to);

    // Sends a copy of the request with the credentials. Throws the transport's error unchanged,
    // AuthError::badResponse for an answer that is not HTTP, and AuthError::refreshRequiresUI for status 401;
    // every other status is the caller's to judge. Nothing is sent twice and no credential is changed.
    static Task<URLSession::Answer> send(URLRequest request);
};

} // namespace cadora
