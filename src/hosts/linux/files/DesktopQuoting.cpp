#include "hosts/linux/files/DesktopQuoting.h"

#include "base/UTF8.h"

#include <algorithm>
#include <cstdint>

namespace cadora {

namespace {

std::string escaped(std::string_view text, std::string_view special) {
    std::string result;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

} // namespace

bool canBeWrittenDown(const std::filesystem::path& path) {
    const std::string& text = path.native();
    return path.is_absolute() && isValidUTF8(text) && std::none_of(text.begin(), text.end(), [](char c) {
               return static_cast<unsigned char>(c) < 0x20;
           });
}

std::string shellWord(std::string_view text) {
    std::string word = "'";
    for (const char c : text) {
        if (c == '\'') {
            word += "'\\''";
        } else {
            word += c;
        }
    }
    return word + '\'';
}

std::string keyFileValue(std::string_view text) {
    std::string value;
    for (const char c : text) {
        if (c == '\\') {
            value += "\\\\";
        } else if (c == '\n') {
            value += "\\n";
        } else if (c == '\t') {
            value += "\\t";
        } else if (c == '\r') {
            value += "\\r";
        } else if (c == ' ' && value.empty()) {
            value += "\\s";
        } else {
            value += c;
        }
    }
    return value;
}

std::string execWord(std::string_view text) {
    // xdg-open doesn't know quotes where it reads the entry itself.
    const bool isPlain =
        !text.empty() && text.find_first_of(" \t\n\"'\\><~|&;$*?#()`") == std::string_view::npos;
    const char* const quote = isPlain ? "" : "\"";
    return keyFileValue(quote + doubledPercent(escaped(text, "\"`$\\")) + quote);
}

std::string doubledPercent(std::string_view text) {
    std::string result;
    for (const char c : text) {
        result.append(c == '%' ? 2 : 1, c);
    }
    return result;
}

std::string xmlText(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const UTF8Character character = takeUTF8Character(text);
        const auto scalar = static_cast<std::uint32_t>(character.scalar);
        const bool isPlain =
            scalar >= 0x20 && scalar < 0x7F &&
            std::string_view("<>&'\"").find(static_cast<char>(scalar)) == std::string_view::npos;
        if (isPlain) {
            result += character.bytes;
        } else {
            result += "&#" + std::to_string(scalar) + ";";
        }
    }
    return result;
}

std::string pythonString(std::string_view text) {
    return escaped(text, "\"\\");
}

std::string withoutLines(std::string_view text, std::string_view prefix, std::string_view group) {
    std::string kept;
    bool isWithin = group.empty();
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end == std::string_view::npos ? text.size() : end + 1);
        text.remove_prefix(line.size());
        if (!group.empty() && line.starts_with('[')) {
            isWithin = line.substr(0, line.find(']') + 1) == group;
        }
        if (!isWithin || !line.starts_with(prefix)) {
            kept += line;
        }
    }
    return kept;
}

} // namespace cadora
