#include "hosts/linux/files/UserFile.h"

#include "hosts/linux/files/PosixFileManager.h"
#include "hosts/linux/system/PosixError.h"
#include "hosts/linux/system/PosixFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <system_error>
#include <vector>

namespace cadora::user_file {

namespace {

namespace fs = std::filesystem;

constexpr const char* notWritten = "couldn’t be written";

void require(int code, const fs::path& path, const char* whatFailed) {
    if (code != 0) {
        throw posixError(code, path, whatFailed);
    }
}

// Where the bytes go: people keep such files elsewhere and link to them, and the link must stay.
fs::path targetOf(const fs::path& path) {
    std::error_code error;
    if (!fs::is_symlink(path, error)) {
        return path;
    }
    const fs::path target = fs::weakly_canonical(path, error);
    return error ? path : target;
}

void makeFolder(const fs::path& path, std::set<fs::path>& made) {
    std::vector<fs::path> missing;
    std::error_code error;
    for (fs::path folder = path; !fs::exists(folder, error); folder = folder.parent_path()) {
        missing.push_back(folder);
    }
    for (; !missing.empty(); missing.pop_back()) {
        const int code = ::mkdir(missing.back().c_str(), 0700) == 0 ? 0 : errno;
        if (code != EEXIST) {
            require(code, missing.back(), "couldn’t be created");
            made.insert(missing.back());
        }
    }
}

} // namespace

std::optional<std::string> read(const fs::path& path) {
    try {
        return PosixFileManager(std::nullopt).contents(path);
    } catch (const PlatformError& error) {
        if (error.code() == ENOENT || error.code() == ENOTDIR) {
            return std::nullopt;
        }
        throw;
    }
}

void write(const fs::path& path, std::string_view bytes, Kind kind, std::set<fs::path>& madeFolders) {
    const auto [folderPath, name] = posix::placeOf(targetOf(path));
    makeFolder(folderPath, madeFolders);
    const FileDescriptor folder = posix::openFolder(AT_FDCWD, folderPath);
    require(folder ? 0 : errno, folderPath, notWritten);
    posix::TemporaryFile::removeAbandoned(folder.get(), name);
    const auto file = posix::TemporaryFile::create(folder.get(), name);
    require(file ? 0 : errno, path, notWritten);

    struct stat present{};
    const bool isThere = ::fstatat(folder.get(), name.c_str(), &present, 0) == 0;
    const mode_t usual = kind == Kind::program ? 0755 : 0644;
    require(::fchmod(file->get(), isThere ? present.st_mode & 07777U : usual) == 0 ? 0 : errno, path,
            notWritten);
    require(posix::writeAll(file->get(), bytes.data(), bytes.size()), path, notWritten);
    require(file->sync(), path, notWritten);
    require(file->moveIntoPlace(), path, notWritten);
    require(posix::syncFolder(folder.get()), path, notWritten);
}

void remove(const fs::path& path) {
    const int code = ::unlink(path.c_str()) == 0 ? 0 : errno;
    if (code != ENOENT && code != ENOTDIR) {
        require(code, path, "couldn’t be removed");
    }
}

void removeEmptyFolders(std::set<fs::path>& folders) {
    // A folder sorts before what is in it.
    for (auto folder = folders.end(); folder != folders.begin();) {
        --folder;
        if (::rmdir(folder->c_str()) == 0 || errno == ENOENT) {
            folder = folders.erase(folder);
        }
    }
}

} // namespace cadora::user_file
