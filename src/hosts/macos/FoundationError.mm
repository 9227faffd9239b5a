#include "hosts/macos/FoundationError.h"

#include "base/PathRules.h"
#include "hosts/macos/FoundationText.h"

#include <system_error>

namespace cadora {

namespace {

std::string sentence(const std::filesystem::path& path, std::string_view whatFailed,
                     std::string_view reason) {
    std::string message = "“" + displayName(path) + "” ";
    message += whatFailed;
    message += ": ";
    message += reason;
    return message;
}

std::string reasonOf(int code) {
    return std::generic_category().message(code);
}

} // namespace

PlatformError platformError(NSError* error) {
    return {stdString(error.domain), error.code, stdString(error.localizedDescription)};
}

std::string displayName(const std::filesystem::path& path) {
    return visibleText(lastPathComponent(path.native()));
}

PlatformError fileError(int code, const std::filesystem::path& path, std::string_view whatFailed) {
    return fileError(code, path, whatFailed, reasonOf(code));
}

PlatformError fileError(int code, const std::filesystem::path& path, std::string_view whatFailed,
                        std::string_view reason) {
    return {stdString(NSPOSIXErrorDomain), code, sentence(path, whatFailed, reason)};
}

PlatformError fileError(NSError* error, const std::filesystem::path& path, std::string_view whatFailed) {
    NSError* const beneath = error.userInfo[NSUnderlyingErrorKey];
    if ([beneath isKindOfClass:[NSError class]] && [beneath.domain isEqualToString:NSPOSIXErrorDomain]) {
        return fileError(static_cast<int>(beneath.code), path, whatFailed);
    }
    NSString* const reason = error.localizedFailureReason;
    return {stdString(error.domain), error.code,
            sentence(path, whatFailed, visibleText(stdString(reason ? reason : error.localizedDescription)))};
}

} // namespace cadora
