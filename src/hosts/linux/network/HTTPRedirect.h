#pragma once

#include "hosts/linux/network/HTTPOrigin.h"
#include "platform/URLSession.h"

#include <string>

namespace cadora {

// A request as the redirects up to now have left it.
struct HTTPRequest {
    // What goes along as the body: the request's own data, a file, or nothing any more.
    enum class Body { data, file, dropped };

    std::string url;
    HTTPOrigin origin;
    std::string method;
    HTTPHeaderFields headers;
    Body body = Body::data;
};

// Whether an answer with this status and a Location is followed. 303 asks for a request without the body; a
// file that stayed behind would be taken for stored, so an upload isn't led there.
bool isFollowed(const HTTPRequest& request, long status);

// The request that follows such an answer; `location` is absolute. Method and body are repeated, but 303, and
// 301 and 302 after the POST of data, ask for a GET without body. What identifies the user stays behind when
// the origin changes. Throws PlatformError for a redirect that can't be followed: from https to http, or to
// anything that HTTPOrigin has no place for.
HTTPRequest redirected(const HTTPRequest& request, long status, const std::string& location);

} // namespace cadora
