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

bool isRedirect(long status) {
    constexpr std::array followed = {301L, 302L, 303L, 307L, 308L};
    return std::find(followed.begin(), followed.end(), status) != followed.end();
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
    if (status != 307 && status != 308 && !isOneOf(request.method, {"GET", "HEAD"})) {
        next.method = "GET";
        next.body = HTTPRequest::Body::dropped;
        removeFields(next.headers, describesBody);
    }
    return next;
}

} // namespace cadora
