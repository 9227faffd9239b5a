#pragma once

#include "hosts/linux/system/FileDescriptor.h"
#include "platform/FileManager.h"

#include <array>
#include <map>
#include <mutex>
#include <set>

namespace cadora {

// The file system through the POSIX calls, without any toolkit. What it creates belongs to the user alone:
// files have mode 0600 and folders 0700, whatever the source's were. Failures are PlatformErrors of the
// domain "POSIX" whose code is the errno value. Where the process may meet a limit on the size of its files,
// it must ignore SIGXFSZ for a failed write to be an error rather than its end.
//
// What may pass is tried again, three times in all: an interruption, a device's error, a lack of memory, and
// of descriptors, for which a few are held in reserve. A file of more than 64 MiB is not read.
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
    // links, that holds more than 10,000 of them, or that would be copied into itself, is refused whole.
    void copyItem(const std::filesystem::path& from, const std::filesystem::path& to) override;

    void linkItem(const std::filesystem::path& from, const std::filesystem::path& to) override;
    void removeItem(const std::filesystem::path& path) override;
    std::string contents(const std::filesystem::path& path) override;
    bool holds(const std::filesystem::path& path, std::string_view bytes) override;
    void writeAtomically(const std::filesystem::path& path, std::string_view bytes) override;

    // Where the file system knows nameless files and allocation ahead.
    void keepRoom(const std::filesystem::path& folder, std::size_t bytes) override;

private:
    struct Room {
        // As many as are wanted.
        std::size_t bytes = 0;
        // A file without a name that holds them, or what there is of them; empty while they are given back.
        FileDescriptor file;
    };

    template <class Operation> auto insistently(const std::filesystem::path& folder, Operation operation);
    bool makeUpFor(int code, const std::filesystem::path& folder);
    void restoreReserves();
    static void allocate(const std::filesystem::path& folder, Room& room);

    std::string read(const std::filesystem::path& path);
    void replace(const std::filesystem::path& path, std::string_view bytes);
    bool isFirstWrite(const std::filesystem::path& path);

    std::optional<std::filesystem::path> applicationSupportDirectory_;
    std::mutex mutex_;
    std::set<std::filesystem::path> written_;
    std::map<std::filesystem::path, Room> rooms_;
    // As many as the largest of these operations takes at a time.
    std::array<FileDescriptor, 3> spares_;
};

} // namespace cadora
