#include "outbox/PostTitle.h"

#include "base/PathRules.h"
#include "base/UTF8.h"

namespace cadora {

namespace {

bool isWhitespaceOrNewline(char32_t scalar) {
    return scalar == 0x20 || (scalar >= 0x09 && scalar <= 0x0D) || scalar == 0x85 || scalar == 0xA0 ||
           scalar == 0x1680 || (scalar >= 0x2000 && scalar <= 0x200A) || scalar == 0x2028 ||
           scalar == 0x2029 || scalar == 0x202F || scalar == 0x205F || scalar == 0x3000;
}

} // namespace

std::optional<std::string> PostTitle::clean(std::string_view fromFilename) {
    const std::string name = deletingPathExtension(fromFilename);
    std::string title;
    bool pendingSpace = false;
    for (std::string_view rest = name; !rest.empty();) {
        const UTF8Character character = takeUTF8Character(rest);
        if (isWhitespaceOrNewline(character.scalar)) {
            pendingSpace = !title.empty();
            continue;
        }
        if (pendingSpace) {
            title += ' ';
            pendingSpace = false;
        }
        title += character.bytes;
    }
    return title.empty() ? std::nullopt : std::optional(title);
}

} // namespace cadora
