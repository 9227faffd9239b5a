#include "hosts/linux/network/HTTPRedirect.h"

#include "base/ASCII.h"
#include "hosts/linux/network/CurlError.h"
#include "hosts/linux/network/HTTPOrigin.h"

#include <algorithm>
#include <array>
#include <curl/curl.h>
#include <initializer_list>
#include <string_view>

namespace cadora {

namespace {

bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
    return std::any_of(names.begin(), names.end(),
                       [&](std::string_view known) { return equalIgnoringCase(name, known); });
}

bool identifiesUser(std::string_view field) {
    constexpr std::string_view ownPrefix = "X-Cadora-";
    return isOneOf(field, {"Authorization", "Cookie"}) ||
           equalIgnoringCase(field.substr(0, ownPrefix.size()), ownPrefix);
}

bool describesBody(std::string_view field) {
    constexpr std::string_view prefix = "Content-";
    return equalIgnoringCase(field.substr(0, prefix.size()), prefix);
}

// What 301 and 302 mean for a POST is how browsers have always taken them.
bool asksForGet(const HTTPRequest& request, long status) {
    const bool movedPost = (status == 301 || status == 302) && request.method == "POST" &&
                           request.body != HTTPRequest::Body::file;
    return movedPost || (status == 303 && !isOneOf(request.method, {"GET", "HEAD"}));
}

template <class Predicate> void removeFields(HTTPHeaderFields& headers, Predicate unwanted) {
    HTTPHeaderFields kept;
    for (const auto& [name, value] : headers) {
        if (!unwanted(name)) {
            kept.setValue(value, name);
        }
    }
    headers = std::move(kept);
}

} // namespace

bool isFollowed(const HTTPRequest& request, long status) {
    constexpr std::array repeating = {301L, 302L, 307L, 308L};
    return std::find(repeating.begin(), repeating.end(), status) != repeating.end() ||
           (status == 303 && request.body != HTTPRequest::Body::file);
}

HTTPRequest redirected(const HTTPRequest& request, long status, const std::string& location) {
    const auto origin = HTTPOrigin::of(location);
    if (!origin) {
        throw PlatformError(urlSessionErrorDomain, CURLE_UNSUPPORTED_PROTOCOL,
                            request.origin.authority() + " redirected the request to an unsupported URL");
    }
    if (request.origin.scheme == "https" && origin->scheme == "http") {
        throw PlatformError(urlSessionErrorDomain, CURLE_UNSUPPORTED_PROTOCOL,
                            request.origin.authority() +
                                " redirected the request to an insecure connection (http)");
    }
    HTTPRequest next = request;
    next.url = location;
    next.origin = *origin;
    if (next.origin != request.origin) {
        removeFields(next.headers, identifiesUser);
    }
    if (asksForGet(request, status)) {
        next.method = "GET";
        next.body = HTTPRequest::Body::dropped;
        removeFields(next.headers, describesBody);
    }
    return next;
}

} // namespace cadora
