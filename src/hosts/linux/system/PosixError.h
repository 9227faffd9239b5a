#pragma once

#include "base/Error.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace cadora {

// The last component of a path as a message shows it: bytes that are not UTF-8 as U+FFFD, control characters
// escaped, so that no file name can break a line or hide what follows it.
std::string displayName(const std::filesystem::path& path);

// The error of a failed system call: domain "POSIX", `code` from errno, and a sentence such as
// “song.wav” couldn’t be copied: No space left on device
PlatformError posixError(int code, const std::filesystem::path& path, std::string_view whatFailed);

// The same where the system's own words for `code` would mislead.
PlatformError posixError(int code, const std::filesystem::path& path, std::string_view whatFailed,
                         std::string_view reason);

} // namespace cadora
