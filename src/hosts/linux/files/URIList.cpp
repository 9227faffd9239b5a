#include "hosts/linux/files/URIList.h"

#include "base/ASCII.h"

#include <algorithm>
#include <cstring>

namespace cadora {

namespace {

constexpr std::string_view fileScheme = "file:";

// A file's name may hold a colon, so that a scheme alone doesn't make a URI.
bool looksLikeURI(const std::string& text) {
    const std::string scheme = lowercased(std::string_view(text).substr(0, text.find(':')));
    const auto behind = std::string_view(text).substr(std::min(scheme.size() + 1, text.size()));
    return (scheme == "cadora" && scheme.size() < text.size()) ||
           (scheme == "file" && behind.starts_with('/')) ||
           (URL::parse(scheme + ":") && !scheme.empty() && behind.starts_with("//"));
}

} // namespace

std::string escapedURI(std::string_view text) {
    constexpr char digits[] = "0123456789ABCDEF";
    constexpr std::string_view excluded = "\"<>\\^`{|}";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7F && excluded.find(c) == std::string_view::npos) {
            result += c;
        } else {
            result += {'%', digits[byte / 16], digits[byte % 16]};
        }
    }
    return result;
}

bool isOwnURL(std::string_view text) {
    constexpr std::string_view scheme = "cadora:";
    return equalIgnoringCase(text.substr(0, scheme.size()), scheme);
}

void hideOwnURLs(const std::vector<char*>& arguments) {
    for (char* const argument : arguments) {
        if (isOwnURL(argument)) {
            explicit_bzero(argument, std::strlen(argument));
        }
    }
}

std::vector<std::string> uriList(const std::vector<std::string>& arguments,
                                 const std::filesystem::path& workingDirectory) {
    std::vector<std::string> uris;
    uris.reserve(arguments.size());
    for (const std::string& argument : arguments) {
        uris.push_back(looksLikeURI(argument) ? escapedURI(argument)
                                              : URL::file(workingDirectory / argument).text());
    }
    return uris;
}

URIListPasteboard::URIListPasteboard(const std::vector<std::string>& urisAndPaths) {
    for (const std::string& text : urisAndPaths) {
        if (text.starts_with('/')) {
            urls_.push_back(URL::file(text));
        } else if (const auto url = URL::parse(escapedURI(text))) {
            urls_.push_back(*url);
        } else if (equalIgnoringCase(std::string_view(text).substr(0, fileScheme.size()), fileScheme)) {
            malformedFileURIs_.push_back(text);
        }
    }
}

} // namespace cadora
