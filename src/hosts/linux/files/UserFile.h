#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>

// The small files by which a program makes itself known to the user's desktop. Failures are PlatformErrors of
// the domain "POSIX" whose code is the errno value.
namespace cadora::user_file {

enum class Kind { data, program };

// Absent when nothing is there.
std::optional<std::string> read(const std::filesystem::path& path);

// Replaces the file in one step, or the one that a link leads to, which keeps its permissions. The folders
// that had to be made for it are added to `madeFolders`.
void write(const std::filesystem::path& path, std::string_view bytes, Kind kind,
           std::set<std::filesystem::path>& madeFolders);

// Removes a file or a link. One that is not there is no failure.
void remove(const std::filesystem::path& path);

// Removes those of the folders that are empty, the innermost first, and takes from the set those that are
// gone.
void removeEmptyFolders(std::set<std::filesystem::path>& folders);

} // namespace cadora::user_file
