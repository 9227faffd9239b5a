#include "hosts/macos/FoundationText.h"

#include "base/UTF8.h"

#include <array>
#include <cstdio>

namespace cadora {

namespace {

bool isControl(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029 ||
           (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

std::string escaped(char32_t c) {
    switch (c) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default: {
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), c < 0x100 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(c));
        return text.data();
    }
    }
}

} // namespace

NSString* nsString(std::string_view text) {
    const std::string repaired = repairedUTF8(text);
    NSString* const result = [[NSString alloc] initWithBytes:repaired.data()
                                                      length:repaired.size()
                                                    encoding:NSUTF8StringEncoding];
    return result ? result : @"";
}

std::string stdString(NSString* text) {
    return stdString([text dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES]);
}

std::string stdString(NSData* data) {
    return data.length == 0 ? std::string() : std::string(static_cast<const char*>(data.bytes), data.length);
}

NSURL* fileURL(const std::filesystem::path& path) {
    return [NSURL fileURLWithPath:nsString(path.native())];
}

NSURL* nsURL(const URL& url) {
    return [NSURL URLWithString:nsString(url.text())];
}

std::string visibleText(std::string_view text) {
    const std::string repaired = repairedUTF8(text);
    std::string result;
    for (std::string_view rest = repaired; !rest.empty();) {
        const UTF8Character character = takeUTF8Character(rest);
        result += isControl(character.scalar) ? escaped(character.scalar) : std::string(character.bytes);
    }
    return result;
}

} // namespace cadora
