#pragma once

#include "base/URL.h"

#include <filesystem>
#include <string>
#include <string_view>

#import <Foundation/Foundation.h>

namespace cadora {

// Bytes that are not UTF-8 become U+FFFD.
NSString* nsString(std::string_view text);

// As UTF-8; empty for nil. What can't be written in it, half a surrogate pair, is replaced.
std::string stdString(NSString* text);

// The bytes; empty for nil.
std::string stdString(NSData* data);

NSURL* fileURL(const std::filesystem::path& path);

// Nil when the platform takes it for no URL.
NSURL* nsURL(const URL& url);

// The text with line breaks, other control characters and those that turn the text's direction written as
// escapes such as \n and \x1b, so that no file name can break a line or hide what follows it.
std::string visibleText(std::string_view text);

} // namespace cadora
