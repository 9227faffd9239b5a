#pragma once

#include "platform/FileManager.h"

#include <mutex>
#include <set>

namespace cadora {

// The file system through the POSIX calls, without any toolkit. What it creates belongs to the user alone:
// files have mode 0600 and folders 0700, whatever the source's were. Failures are PlatformErrors of the
// domain "POSIX" whose code is the errno value. Where the process may meet a limit on the size of its files,
// it must ignore SIGXFSZ for a failed write to be an error rather than its end.
class PosixFileManager : public FileManager {
public:
    // With the application support directory that the XDG base directories name for the user.
    PosixFileManager();

    explicit PosixFileManager(std::optional<std::filesystem::path> applicationSupportDirectory);

    std::optional<std::filesystem::path> applicationSupportDirectory() override;
    bool fileExists(const std::filesystem::path& path) override;
    std::optional<FileIdentity> identity(const std::filesystem::path& path) override;
    void createDirectory(const std::filesystem::path& path) override;
    std::vector<std::filesystem::path> contentsOfDirectory(const std::filesystem::path& path) override;

    // Links inside a folder are copied as links. A folder that holds anything else than files, folders and
    // links, or that would be copied into itself, is refused whole.
    void copyItem(const std::filesystem::path& from, const std::filesystem::path& to) override;

    void removeItem(const std::filesystem::path& path) override;
    std::string contents(const std::filesystem::path& path) override;
    bool holds(const std::filesystem::path& path, std::string_view bytes) override;
    void writeAtomically(const std::filesystem::path& path, std::string_view bytes) override;

private:
    bool isFirstWrite(const std::filesystem::path& path);

    std::optional<std::filesystem::path> applicationSupportDirectory_;
    std::mutex mutex_;
    std::set<std::filesystem::path> written_;
};

} // namespace cadora
