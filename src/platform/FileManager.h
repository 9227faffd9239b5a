#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cadora {

// Which file a path leads to, and in what state: equal only for the same file, unchanged since, whatever
// names it has.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t file = 0;
    std::int64_t size = 0; // in bytes
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanoseconds = 0;

    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

// The file system. Every failure is thrown as PlatformError, whose text names the file and the reason; after
// a failure, what was there before is still there. Any thread.
class FileManager {
public:
    virtual ~FileManager() = default;

    // The user's folder for applications' own data, absolute; absent if the system knows none.
    virtual std::optional<std::filesystem::path> applicationSupportDirectory() = 0;

    virtual bool fileExists(const std::filesystem::path& path) = 0;

    // Links are followed. Absent when there is nothing, or nothing that can be looked at; nothing is thrown.
    virtual std::optional<FileIdentity> identity(const std::filesystem::path& path) = 0;

    // With the directories above it. One that exists already is no failure. The new directories survive a
    // loss of power when what writeAtomically() wrote afterwards does.
    virtual void createDirectory(const std::filesystem::path& path) = 0;

    // The names in a directory, hidden ones included, in the file system's own order.
    virtual std::vector<std::filesystem::path> contentsOfDirectory(const std::filesystem::path& path) = 0;

    // Copies a file or a folder whole; a symbolic link given as `from` is followed. Fails when `to` exists,
    // and for what is neither a file nor a folder; then nothing is left at `to`. The copy survives a loss of
    // power when what writeAtomically() wrote afterwards on the same volume does.
    virtual void copyItem(const std::filesystem::path& from, const std::filesystem::path& to) = 0;

    // Gives the file at `from` the further name `to` on the same volume, without reading it. Fails when `to`
    // exists, for a folder, and where the file system knows no further names.
    virtual void linkItem(const std::filesystem::path& from, const std::filesystem::path& to) = 0;

    // Deletes a file, or a folder with everything in it; links are removed, never followed.
    virtual void removeItem(const std::filesystem::path& path) = 0;

    virtual std::string contents(const std::filesystem::path& path) = 0;

    // Whether those are the file's bytes, all of them. False when it can't be read; nothing is thrown.
    virtual bool holds(const std::filesystem::path& path, std::string_view bytes) = 0;

    // Replaces the file in one step: at any instant, and after a loss of power, it is the old one or the new
    // one whole. When it returns, the new one survives a loss of power.
    virtual void writeAtomically(const std::filesystem::path& path, std::string_view bytes) = 0;

    // Sets room aside, from now on, for what writeAtomically() will write into the folder, so that it
    // succeeds on a disk that fills up. As far as the platform can; that it can't is no failure.
    virtual void keepRoom(const std::filesystem::path& folder, std::size_t bytes) = 0;
};

} // namespace cadora
