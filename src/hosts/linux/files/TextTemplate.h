#pragma once

#include <map>
#include <string>
#include <string_view>

namespace cadora {

// The text with its places filled in. A place is `@name:quoting@`: the value of that name, quoted as the
// text's language asks at that point by one or more of
//
//   shell     one word of a shell's command
//   percent   with each percent sign doubled
//   exec      one word of a desktop entry's Exec key, as it stands in the file
//   keyfile   a value of a key file
//   xml       character data
//   python    what stands between the double quotes of a string
//
// with commas between them, the first innermost. Every other byte stays, and values are not looked into.
// Throws Error for a place of which the name or the quoting isn't known.
std::string filledIn(std::string_view text, const std::map<std::string_view, std::string>& values);

} // namespace cadora
