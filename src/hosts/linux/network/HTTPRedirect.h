#pragma once

#include "hosts/linux/network/HTTPOrigin.h"
#include "platform/URLSession.h"

#include <string>

namespace cadora {

// A request as the redirects up to now have left it.
struct HTTPRequest {
    enum class Body { sent, dropped };

    std::string url;
    HTTPOrigin origin;
    std::string method;
    HTTPHeaderFields headers;
    Body body = Body::sent;
};

// Whether an answer with this status and a Location is followed.
bool isRedirect(long status);

// The request that follows such an answer; `location` is absolute. 301, 302 and 303 turn it into a GET
// without body, 307 and 308 repeat method and body. What identifies the user stays behind when the origin
// changes. Throws PlatformError for a redirect that isn't followed: from https to http, or to anything that
// HTTPOrigin has no place for.
HTTPRequest redirected(const HTTPRequest& request, long status, const std::string& location);

} // namespace cadora
