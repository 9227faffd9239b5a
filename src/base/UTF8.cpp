#include "base/UTF8.h"

#include <vector>

namespace cadora {

UTF8Character takeUTF8Character(std::string_view& bytes) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byte(0);
    std::size_t length = 1;
    char32_t scalar = lead;
    // The range of the second byte excludes overlong forms, surrogates and what lies beyond U+10FFFF.
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    bool wellFormed = lead < 0x80;
    std::size_t expected = 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        expected = 2;
        scalar = lead & 0x1FU;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        expected = 3;
        scalar = lead & 0x0FU;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        expected = 4;
        scalar = lead & 0x07U;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    }
    if (expected > 1) {
        while (length < expected && length < bytes.size() && byte(length) >= low && byte(length) <= high) {
            scalar = (scalar << 6U) | (byte(length) & 0x3FU);
            low = 0x80;
            high = 0xBF;
            ++length;
        }
        wellFormed = length == expected;
    }
    const UTF8Character character{wellFormed ? scalar : UTF8Character::replacement, bytes.substr(0, length),
                                  wellFormed};
    bytes.remove_prefix(length);
    return character;
}

bool isValidUTF8(std::string_view bytes) {
    while (!bytes.empty()) {
        if (!takeUTF8Character(bytes).isWellFormed) {
            return false;
        }
    }
    return true;
}

std::string repairedUTF8(std::string_view bytes) {
    std::string repaired;
    while (!bytes.empty()) {
        const UTF8Character character = takeUTF8Character(bytes);
        repaired += character.isWellFormed ? character.bytes : std::string_view("\xEF\xBF\xBD");
    }
    return repaired;
}

std::string shortenedInTheMiddle(std::string_view text, std::size_t most) {
    std::vector<std::string_view> characters;
    for (std::string_view rest = text; !rest.empty();) {
        characters.push_back(takeUTF8Character(rest).bytes);
    }
    if (characters.size() <= most) {
        return std::string(text);
    }
    const std::size_t head = most / 2;
    const std::size_t tail = characters.size() - (most - 1 - head);
    std::string shortened;
    for (std::size_t i = 0; i < head; ++i) {
        shortened += characters[i];
    }
    shortened += "…";
    for (std::size_t i = tail; i < characters.size(); ++i) {
        shortened += characters[i];
    }
    return shortened;
}

} // namespace cadora
