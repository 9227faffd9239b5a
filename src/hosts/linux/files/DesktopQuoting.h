#pragma once

#include <filesystem>
#include <string>
#include <string_view>

// How a text is written within the files by which a desktop learns of programs.
namespace cadora {

// Whether such files can name the path at all: it is absolute, UTF-8, and holds no control character.
bool canBeWrittenDown(const std::filesystem::path& path);

// One word of a POSIX shell's command.
std::string shellWord(std::string_view text);

// A value of a key file, such as a desktop entry.
std::string keyFileValue(std::string_view text);

// One word of a desktop entry's Exec key, as it stands in the file.
std::string execWord(std::string_view text);

// The text with each percent sign doubled, where one alone begins a field code.
std::string doubledPercent(std::string_view text);

// Character data of an XML document in any encoding that has ASCII within it. The text is UTF-8.
std::string xmlText(std::string_view text);

// What stands between the double quotes of a string in a Python source. The text is UTF-8.
std::string pythonString(std::string_view text);

// The text without the lines of which `prefix` is the beginning, looked at only within the group of a key
// file when one is named.
std::string withoutLines(std::string_view text, std::string_view prefix, std::string_view group = {});

} // namespace cadora
