#pragma once

#include "platform/FileManager.h"

namespace cadora {

// The file system through NSFileManager, which clones files where the volume can, and the system calls that
// make what it did survive a loss of power. New folders have mode 0700 and written files 0600; a copy has the
// permissions of its source and is never locked.
//
// Failures are PlatformErrors of NSPOSIXErrorDomain where a system call failed, else of NSCocoaErrorDomain.
class FoundationFileManager : public FileManager {
public:
    // With the application support directory of the user domain.
    FoundationFileManager();

    explicit FoundationFileManager(std::optional<std::filesystem::path> applicationSupportDirectory);

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

    // Keeps none: a volume of APFS shares its room with others, and promises none of it.
    void keepRoom(const std::filesystem::path& folder, std::size_t bytes) override;

private:
    std::optional<std::filesystem::path> applicationSupportDirectory_;
};

} // namespace cadora
