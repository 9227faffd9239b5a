#pragma once

#include <string>
#include <string_view>

// How file names are taken apart: the desktop's rules for what a user sees as name and extension, which
// differ from those of std::filesystem in the cases that musicians' files have ("Mr. Blue Sky", "take 2.").
namespace cadora {

// What stands behind the last separator, trailing separators ignored; "/" for the root.
std::string lastPathComponent(std::string_view path);

// Without its dot; empty when there is none. A leading dot begins a hidden name, not an extension; what is
// empty or holds a space or a direction mark is no extension.
std::string pathExtension(std::string_view name);

// The last path component without its extension and dot.
std::string deletingPathExtension(std::string_view name);

} // namespace cadora
