#pragma once

#include "hosts/linux/system/FileDescriptor.h"

#include <dirent.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace cadora::posix {

// Repeats a system call that a signal interrupted.
template <class Call> auto retrying(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

// The folder that holds `path`, and its name there. A trailing slash is not part of the name.
struct Place {
    std::filesystem::path folder;
    std::filesystem::path name;
};
Place placeOf(const std::filesystem::path& path);

// Opens a folder for reading and as a base for the ...at() calls; empty with errno set when that fails.
FileDescriptor openFolder(int base, const std::filesystem::path& path, int flags = 0);

// What a folder holds, "." and ".." left out. False with errno set when reading it fails.
bool readNames(int folder, std::vector<std::filesystem::path>& names);

// Brings a file's bytes, or a folder's entries, to the disk; 0 or an errno value. A file system that can't
// sync a folder is none of the caller's concern.
int syncFile(int file);
int syncFolder(int folder);

// Writes all of it, whatever the system takes at a time; 0 or an errno value.
int writeAll(int file, const char* bytes, std::size_t count);

// Why removing a tree did not succeed.
struct RemovalFailure {
    int code = 0; // 0: it did
    std::filesystem::path name;
};

// Removes a file, or a folder with everything in it, and goes on past what can't be removed. The first
// failure is reported. Links are removed, never followed.
RemovalFailure removeTree(int folder, const std::filesystem::path& name);

// A file under construction beside its final place, locked for as long as it is open and deleted unless it is
// moved there. Its name begins with a dot and tells which file it is for.
class TemporaryFile {
public:
    // Creates it, empty, with mode 0600, in `folder`, which must stay open. Empty with errno set when that
    // fails.
    static std::unique_ptr<TemporaryFile> create(int folder, const std::filesystem::path& finalName);

    // Deletes those that a crash left behind, known by their lock being free.
    static void removeAbandoned(int folder, const std::filesystem::path& finalName);

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile();

    int get() const { return file_.get(); }

    // Brings its bytes to the disk; 0 or an errno value.
    int sync() const { return syncFile(file_.get()); }

    // Gives it its final name, in place of what bears it; 0 or an errno value. To survive a loss of power it
    // must have been synced before, and the folder must be afterwards.
    int moveIntoPlace();

private:
    TemporaryFile(int folder, FileDescriptor file, std::filesystem::path name,
                  std::filesystem::path finalName);

    int folder_;
    FileDescriptor file_;
    std::filesystem::path name_;
    std::filesystem::path finalName_;
};

} // namespace cadora::posix
