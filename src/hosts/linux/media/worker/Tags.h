#pragma once

#include <map>
#include <string>
#include <string_view>

namespace cadora {

// A tag's bytes as UTF-8. Old files hold Latin-1 where UTF-8 is promised: what isn't UTF-8 is read as
// that. Control characters other than line breaks and tabs are dropped, and very long texts cut.
std::string readableText(std::string_view bytes);

// The tags that make sense in any music file, under lower-case names: everything about how the source
// was encoded, and whatever a program left there for itself, stays behind.
std::map<std::string, std::string> commonTags(const std::map<std::string, std::string>& tags);

} // namespace cadora
