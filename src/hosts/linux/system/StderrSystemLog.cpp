#include "hosts/linux/system/StderrSystemLog.h"

#include "base/UTF8.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include <unistd.h>

namespace cadora {

namespace {

std::string escape(const char* format, unsigned value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

// Whether showing the character could break the line, drive a terminal, or turn the text's direction.
bool isControl(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029 ||
           (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const UTF8Character character = takeUTF8Character(text);
        if (!character.isWellFormed) {
            for (const char byte : character.bytes) {
                result += escape("\\x%02x", static_cast<unsigned char>(byte));
            }
        } else if (character.scalar == '\n') {
            result += "\\n";
        } else if (character.scalar == '\r') {
            result += "\\r";
        } else if (character.scalar == '\t') {
            result += "\\t";
        } else if (isControl(character.scalar)) {
            result += escape("\\u%04x", static_cast<unsigned>(character.scalar));
        } else {
            result += character.bytes;
        }
    }
    return result;
}

} // namespace

void StderrSystemLog::log(const std::string& line) {
    const std::string entry = printable(line) + '\n';
    std::string_view rest = entry;
    while (!rest.empty()) {
        const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
        if (written > 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return;
        }
    }
}

} // namespace cadora
