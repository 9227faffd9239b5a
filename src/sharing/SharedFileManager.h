#pragma once

#include "platform/FileManager.h"

#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace cadora {

// The file system, for several who write the same: bytes that a file holds already are not written again.
// What counts is what is on the disk; only that this process has brought it there safely is remembered.
class SharedFileManager : public FileManager {
public:
    explicit SharedFileManager(FileManager& files) : files_(files) {}

    std::optional<std::filesystem::path> applicationSupportDirectory() override;
    bool fileExists(const std::filesystem::path& path) override;
    std::optional<FileIdentity> identity(const std::filesystem::path& path) override;
    void createDirectory(const std::filesystem::path& path) override;
    std::vector<std::filesystem::path> contentsOfDirectory(const std::filesystem::path& path) override;
    void copyItem(const std::filesystem::path& from, const std::filesystem::path& to) override;
    void linkItem(const std::filesystem::path& from, const std::filesystem::path& to) override;
    void removeItem(const std::filesystem::path& path) override;
    std::string contents(const std::filesystem::path& path) override;
    bool holds(const std::filesystem::path& path, std::string_view bytes) override;
    void writeAtomically(const std::filesystem::path& path, std::string_view bytes) override;
    void keepRoom(const std::filesystem::path& folder, std::size_t bytes) override;

    // What was removed through this since the last call.
    std::set<std::filesystem::path> takeRemoved();

private:
    bool isSafelyWritten(const std::filesystem::path& path);

    FileManager& files_;
    std::mutex mutex_;
    std::set<std::filesystem::path> removed_;
    std::set<std::filesystem::path> safelyWritten_;
};

} // namespace cadora
