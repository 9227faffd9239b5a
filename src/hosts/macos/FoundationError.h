#pragma once

#include "base/Error.h"

#include <filesystem>
#include <string_view>

#import <Foundation/Foundation.h>

namespace cadora {

// The platform's error as it is: its domain, code and localized description. Never called with nil.
PlatformError platformError(NSError* error);

// The last component of a path as a message shows it.
std::string displayName(const std::filesystem::path& path);

// What went wrong with a file, as a sentence such as
// “song.wav” couldn’t be copied: No space left on device
// `code` is an errno value.
PlatformError fileError(int code, const std::filesystem::path& path, std::string_view whatFailed);

// The same where the system's own words for `code` would mislead.
PlatformError fileError(int code, const std::filesystem::path& path, std::string_view whatFailed,
                        std::string_view reason);

// The same for an error of Foundation's. Where a system call failed beneath it, that call's reason is told.
PlatformError fileError(NSError* error, const std::filesystem::path& path, std::string_view whatFailed);

} // namespace cadora
