#include "hosts/linux/media/worker/Tags.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace cadora {

namespace {

constexpr std::size_t longestText = 16384;

constexpr std::array<std::string_view, 14> commonNames = {
    "album",       "album_artist", "artist", "comment",  "composer", "copyright", "date",
    "description", "disc",         "genre",  "grouping", "lyrics",   "title",     "track"};

// The length of the well-formed UTF-8 sequence at the start of text, 0 if there is none.
std::size_t sequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xc2 && first <= 0xdf   ? 2
                               : (first & 0xf0) == 0xe0         ? 3
                               : first >= 0xf0 && first <= 0xf4 ? 4
                                                                : 0;
    if (length == 0 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const std::uint8_t second = byte(1);
    const bool overlongOrTooLarge = (first == 0xe0 && second < 0xa0) || (first == 0xed && second >= 0xa0) ||
                                    (first == 0xf0 && second < 0x90) || (first == 0xf4 && second >= 0x90);
    return overlongOrTooLarge ? 0 : length;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

bool isDropped(std::uint8_t byte) {
    return (byte < 0x20 && byte != '\n' && byte != '\r' && byte != '\t') || byte == 0x7f;
}

} // namespace

std::string readableText(std::string_view bytes) {
    const bool utf8 = isUtf8(bytes);
    std::string text;
    for (std::size_t i = 0; i < bytes.size();) {
        const auto byte = static_cast<std::uint8_t>(bytes[i]);
        const std::size_t length = utf8 ? sequenceLength(bytes.substr(i)) : 1;
        if (text.size() + std::max<std::size_t>(length, 2) > longestText) {
            break;
        }
        if (byte >= 0x80 && !utf8) {
            text += static_cast<char>(0xc0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3f));
        } else if (!isDropped(byte)) {
            text += bytes.substr(i, length);
        }
        i += length;
    }
    return text;
}

std::map<std::string, std::string> commonTags(const std::map<std::string, std::string>& tags) {
    std::map<std::string, std::string> result;
    for (const auto& [key, value] : tags) {
        std::string name = key;
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        if (!value.empty() && std::find(commonNames.begin(), commonNames.end(), name) != commonNames.end()) {
            result.emplace(name, value);
        }
    }
    return result;
}

} // namespace cadora
