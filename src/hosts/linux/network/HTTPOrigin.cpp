#include "hosts/linux/network/HTTPOrigin.h"

#include "base/ASCII.h"

#include <algorithm>
#include <cstdlib>
#include <curl/curl.h>
#include <memory>
#include <string_view>

namespace cadora {

namespace {

struct FreeURL {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

std::optional<std::string> part(CURLU* url, CURLUPart which, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url, which, &text, flags) != CURLUE_OK) {
        return std::nullopt;
    }
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, curl_free);
    return std::string(text);
}

} // namespace

std::optional<HTTPOrigin> HTTPOrigin::of(const std::string& url) {
    // libcurl takes one slash or three for two, and with three a piece of the path for the host.
    const std::string_view afterScheme = std::string_view(url).substr(std::min(url.find(':'), url.size()));
    if (afterScheme.substr(0, 3) != "://" || afterScheme.substr(3, 1) == "/") {
        return std::nullopt;
    }
    const std::unique_ptr<CURLU, FreeURL> parsed(curl_url());
    if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_PATH_AS_IS) != CURLUE_OK) {
        return std::nullopt;
    }
    const std::string scheme = lowercased(part(parsed.get(), CURLUPART_SCHEME).value_or(""));
    std::string host = lowercased(part(parsed.get(), CURLUPART_HOST).value_or(""));
    const auto port = part(parsed.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    constexpr std::size_t longestName = 253;
    if ((scheme != "http" && scheme != "https") || host.empty() || host.size() > longestName || !port ||
        part(parsed.get(), CURLUPART_USER) || part(parsed.get(), CURLUPART_PASSWORD)) {
        return std::nullopt;
    }
    if (host.front() == '[') {
        host = host.substr(1, host.size() - 2);
    }
    return HTTPOrigin{scheme, host, std::atoi(port->c_str())};
}

bool HTTPOrigin::isLoopback() const {
    return host == "localhost" || host == "::1" ||
           (host.rfind("127.", 0) == 0 && host.find_first_not_of("0123456789.") == std::string::npos);
}

std::string HTTPOrigin::authority() const {
    const bool address6 = host.find(':') != std::string::npos;
    const bool usual = port == (scheme == "https" ? 443 : 80);
    return (address6 ? "[" + host + "]" : host) + (usual ? "" : ":" + std::to_string(port));
}

} // namespace cadora
