#pragma once

#include <filesystem>
#include <string_view>

namespace cadora {

// System calls that Foundation has no words for. All answer 0 or an errno value.

//
// To sync hands what was written to the drive, which may keep it in a cache of its own for a while and write
// it in another order. Emptying that cache takes tens of milliseconds, so it is done once, by what must be
// last.

// Syncs a file's bytes or a folder's entries.
int sync(const std::filesystem::path& path);

// The same, and empties the drive's cache: what was synced before on the same drive is on the disk too. A
// file system that can't is asked for what it can.
int syncThroughDrive(const std::filesystem::path& path);

// Syncs everything in a folder, or a file, and unlocks it: what carries the immutable flag could be neither
// moved nor deleted.
int unlockAndSync(const std::filesystem::path& path);

// A new file with these bytes, synced so that the drive writes it, and what was synced before, ahead of all
// that follows; mode 0600. Fails when it exists.
int writeNewFile(const std::filesystem::path& path, std::string_view bytes);

// Gives an item its final name, beside it, in place of a file of that name, and syncs the folder's entries.
int moveReplacing(const std::filesystem::path& from, const std::filesystem::path& to);

// The same, but fails with EEXIST when there is something of that name.
int moveWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to);

// A name that nobody has, hidden, beside `path` and with its extension.
std::filesystem::path temporaryNameBeside(const std::filesystem::path& path);

} // namespace cadora
