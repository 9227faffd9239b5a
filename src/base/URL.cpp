#include "base/URL.h"

#include "base/ASCII.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace cadora {

namespace {

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int hexadecimal(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool isUnreserved(char c) {
    return isLetter(c) || isDigit(c) || std::string_view("-._~").find(c) != std::string_view::npos;
}

// Length of the scheme in front of the first colon, 0 without one.
std::size_t schemeLength(std::string_view text) {
    const auto end = std::find_if_not(text.begin(), text.end(), [](char c) {
        return isLetter(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
    });
    const bool present = end != text.end() && *end == ':' && end != text.begin() && isLetter(text.front());
    return present ? static_cast<std::size_t>(end - text.begin()) : 0;
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            decoded += static_cast<char>(hexadecimal(text[i + 1]) * 16 + hexadecimal(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

// The places of a URL that this program looks into.
struct Components {
    std::optional<std::string_view> userInformation;
    std::optional<std::string_view> authority;
    std::string_view path;
    std::optional<std::string_view> query;
};

Components split(std::string_view text) {
    Components parts;
    if (const auto length = schemeLength(text); length != 0) {
        text.remove_prefix(length + 1);
    }
    text = text.substr(0, text.find('#'));
    if (const auto mark = text.find('?'); mark != std::string_view::npos) {
        parts.query = text.substr(mark + 1);
        text = text.substr(0, mark);
    }
    if (text.substr(0, 2) == "//") {
        text.remove_prefix(2);
        const auto end = std::min(text.find('/'), text.size());
        auto authority = text.substr(0, end);
        if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
            parts.userInformation = authority.substr(0, at);
            authority.remove_prefix(at + 1);
        }
        parts.authority = authority;
        text.remove_prefix(end);
    }
    parts.path = text;
    return parts;
}

struct HostAndPort {
    // With the brackets of an IPv6 address.
    std::string_view host;
    // Absent without a colon in front of it.
    std::optional<std::string_view> port;
};

HostAndPort splitAuthority(std::string_view authority) {
    const auto bracket = authority.find(']');
    const auto colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
    if (colon == std::string_view::npos) {
        return {authority, std::nullopt};
    }
    return {authority.substr(0, colon), authority.substr(colon + 1)};
}

bool isNumber(std::string_view text) {
    return std::all_of(text.begin(), text.end(), isDigit);
}

// Four numbers with dots between them.
bool isIPv4Address(std::string_view text) {
    int numbers = 0;
    for (;; text.remove_prefix(text.find('.') + 1)) {
        const auto number = text.substr(0, text.find('.'));
        if (number.empty() || number.size() > 3 || !isNumber(number)) {
            return false;
        }
        ++numbers;
        if (number.size() == text.size()) {
            return numbers == 4;
        }
    }
}

// How many groups of 16 bits a part of an IPv6 address has; absent when it isn't such a part.
std::optional<int> groupCount(std::string_view text) {
    int count = 0;
    while (!text.empty()) {
        const auto group = text.substr(0, text.find(':'));
        const bool last = group.size() == text.size();
        if (last && isIPv4Address(group)) {
            return count + 2;
        }
        const bool hexadecimalGroup =
            !group.empty() && group.size() <= 4 &&
            std::all_of(group.begin(), group.end(), [](char c) { return hexadecimal(c) >= 0; });
        if (!hexadecimalGroup || group.size() + 1 == text.size()) {
            return std::nullopt;
        }
        ++count;
        text.remove_prefix(last ? group.size() : group.size() + 1);
    }
    return count;
}

bool isIPv6Address(std::string_view text) {
    constexpr int groups = 8;
    const auto gap = text.find("::");
    if (gap == std::string_view::npos) {
        return groupCount(text) == groups;
    }
    const auto before = groupCount(text.substr(0, gap));
    const auto after = groupCount(text.substr(gap + 2));
    return before && after && *before + *after < groups;
}

bool isHost(std::string_view host) {
    if (host.substr(0, 1) == "[") {
        return host.back() == ']' && host.size() > 2 && isIPv6Address(host.substr(1, host.size() - 2));
    }
    return host.find_first_of("[]@") == std::string_view::npos;
}

bool isAuthority(const Components& parts) {
    if (parts.userInformation.value_or("").find_first_of("[]@") != std::string_view::npos) {
        return false;
    }
    const auto [host, port] = splitAuthority(parts.authority.value_or(""));
    return isHost(host) && isNumber(port.value_or(""));
}

// A name that can be looked up, or an address.
bool isReachableHost(std::string_view host) {
    constexpr std::size_t longestName = 253;
    const bool isName = std::all_of(host.begin(), host.end(), isUnreserved);
    return !host.empty() && host.size() <= longestName && (isName || host.front() == '[');
}

bool isReachablePort(std::string_view port) {
    constexpr int largest = 65535;
    port.remove_prefix(std::min(port.find_first_not_of('0'), port.size()));
    return !port.empty() && port.size() <= 5 && std::stoi(std::string(port)) <= largest;
}

} // namespace

std::optional<URL> URL::parse(std::string text) {
    if (text.empty()) {
        return std::nullopt;
    }
    constexpr std::string_view reserved = ":/?#[]@!$&'()*+,;=";
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            const bool escape =
                i + 2 < text.size() && hexadecimal(text[i + 1]) >= 0 && hexadecimal(text[i + 2]) >= 0;
            if (!escape) {
                return std::nullopt;
            }
        } else if (!isUnreserved(text[i]) && reserved.find(text[i]) == std::string_view::npos) {
            return std::nullopt;
        }
    }
    if (!isAuthority(split(text))) {
        return std::nullopt;
    }
    return URL(std::move(text));
}

URL URL::constant(const std::string& text) {
    auto url = parse(text);
    if (!url) {
        std::abort();
    }
    return *std::move(url);
}

URL URL::file(const std::filesystem::path& path) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text = "file://";
    for (const char c : path.string()) {
        if (isUnreserved(c) || c == '/') {
            text += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            text += {'%', digits[byte / 16], digits[byte % 16]};
        }
    }
    return URL(std::move(text));
}

std::string URL::scheme() const {
    return lowercased(std::string_view(text_).substr(0, schemeLength(text_)));
}

std::string URL::authority() const {
    return std::string(split(text_).authority.value_or(""));
}

std::string URL::origin() const {
    return scheme() + "://" + authority();
}

bool URL::isHTTPAddress() const {
    const Components parts = split(text_);
    const auto [host, port] = splitAuthority(parts.authority.value_or(""));
    return (scheme() == "http" || scheme() == "https") && !parts.userInformation && isReachableHost(host) &&
           (port.value_or("").empty() || isReachablePort(*port));
}

std::optional<std::filesystem::path> URL::filePath() const {
    const Components parts = split(text_);
    const std::string_view host = parts.authority.value_or("");
    if (!isFileURL() || (!host.empty() && host != "localhost") || parts.path.substr(0, 1) != "/") {
        return std::nullopt;
    }
    std::string path = percentDecoded(parts.path);
    if (path.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return std::filesystem::path(std::move(path));
}

std::vector<std::pair<std::string, std::optional<std::string>>> URL::queryItems() const {
    std::vector<std::pair<std::string, std::optional<std::string>>> items;
    auto query = split(text_).query;
    while (query) {
        const auto end = query->find('&');
        const auto item = query->substr(0, end);
        const auto equals = item.find('=');
        auto& [name, value] = items.emplace_back(percentDecoded(item.substr(0, equals)), std::nullopt);
        if (equals != std::string_view::npos) {
            value = percentDecoded(item.substr(equals + 1));
        }
        if (end == std::string_view::npos) {
            break;
        }
        query->remove_prefix(end + 1);
    }
    return items;
}

} // namespace cadora
