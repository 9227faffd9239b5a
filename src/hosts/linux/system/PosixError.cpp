#include "hosts/linux/system/PosixError.h"

#include "base/PathRules.h"
#include "base/UTF8.h"

#include <system_error>

namespace cadora {

namespace {

bool isControl(char32_t scalar) {
    return scalar < 0x20 || (scalar >= 0x7F && scalar < 0xA0);
}

std::string escaped(char32_t control) {
    constexpr char digits[] = "0123456789abcdef";
    if (control == '\n') {
        return "\\n";
    }
    if (control == '\t') {
        return "\\t";
    }
    return {'\\', 'x', digits[control >> 4U], digits[control & 0xFU]};
}

} // namespace

std::string displayName(const std::filesystem::path& path) {
    const std::string name = repairedUTF8(lastPathComponent(path.native()));
    std::string result;
    for (std::string_view rest = name; !rest.empty();) {
        const UTF8Character character = takeUTF8Character(rest);
        result += isControl(character.scalar) ? escaped(character.scalar) : std::string(character.bytes);
    }
    return result;
}

PlatformError posixError(int code, const std::filesystem::path& path, std::string_view whatFailed) {
    return posixError(code, path, whatFailed, std::generic_category().message(code));
}

PlatformError posixError(int code, const std::filesystem::path& path, std::string_view whatFailed,
                         std::string_view reason) {
    std::string message = "“" + displayName(path) + "” ";
    message += whatFailed;
    message += ": ";
    message += reason;
    return {"POSIX", code, std::move(message)};
}

} // namespace cadora
