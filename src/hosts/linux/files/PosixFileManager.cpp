#include "hosts/linux/files/PosixFileManager.h"

#include "hosts/linux/system/PosixError.h"
#include "hosts/linux/system/PosixFile.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace cadora {

namespace {

namespace fs = std::filesystem;
using posix::retrying;

constexpr const char* notCopied = "couldn’t be copied";
constexpr const char* notCreated = "couldn’t be created";
constexpr const char* notLinked = "couldn’t be given another name";
constexpr const char* notRead = "couldn’t be read";
constexpr const char* notRemoved = "couldn’t be removed";
constexpr const char* notWritten = "couldn’t be written";

constexpr std::size_t bufferSize = 1U << 20U;
constexpr std::size_t comparedAtATime = 1U << 15U;

// Reading a file whole takes as much memory as it has bytes, and what is made from them several times more.
constexpr off_t largestReadable = 64L << 20U;

constexpr int attempts = 3;

// Of a folder that is copied: beyond it is no recording, and the copy holds up the caller for too long.
constexpr std::size_t mostEntries = 10000;

[[noreturn]] void fail(int code, const fs::path& path, const char* whatFailed) {
    throw posixError(code, path, whatFailed);
}

void require(int code, const fs::path& path, const char* whatFailed) {
    if (code != 0) {
        fail(code, path, whatFailed);
    }
}

// The system would silently take what stands before a NUL byte for the whole name.
void requireWholePath(const fs::path& path, const char* whatFailed) {
    if (path.native().find('\0') != std::string::npos) {
        fail(EINVAL, path, whatFailed);
    }
}

bool isSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::optional<fs::path> homeDirectory() {
    if (const char* const home = std::getenv("HOME"); home != nullptr && fs::path(home).is_absolute()) {
        return home;
    }
    std::vector<char> buffer(1024);
    passwd entry{};
    passwd* found = nullptr;
    int code = 0;
    while ((code = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (code != 0 || found == nullptr || !fs::path(found->pw_dir).is_absolute()) {
        return std::nullopt;
    }
    return found->pw_dir;
}

std::optional<fs::path> userDataDirectory() {
    if (const char* const data = std::getenv("XDG_DATA_HOME");
        data != nullptr && fs::path(data).is_absolute()) {
        return data;
    }
    const auto home = homeDirectory();
    return home ? std::optional(*home / ".local" / "share") : std::nullopt;
}

// A file or folder opened for copying, and what it was then.
struct Source {
    FileDescriptor descriptor;
    struct stat status{};
};

// Looks before it opens, since opening a device can set it off, and again afterwards, since the name may mean
// something else by then; a FIFO that slips in between does not block.
Source openSource(int folder, const fs::path& name, const fs::path& shown, int follow) {
    Source source;
    const auto requireCopyable = [&] {
        if (!S_ISREG(source.status.st_mode) && !S_ISDIR(source.status.st_mode)) {
            throw posixError(ENOTSUP, shown, notCopied, "it is neither a file nor a folder");
        }
    };
    if (::fstatat(folder, name.c_str(), &source.status, follow) != 0) {
        fail(errno, shown, notCopied);
    }
    requireCopyable();
    const int flags =
        O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (follow == AT_SYMLINK_NOFOLLOW ? O_NOFOLLOW : 0);
    source.descriptor = FileDescriptor(retrying([&] { return ::openat(folder, name.c_str(), flags); }));
    if (!source.descriptor || ::fstat(source.descriptor.get(), &source.status) != 0) {
        fail(errno, shown, notCopied);
    }
    requireCopyable();
    return source;
}

// Copies from where both files stand to the end of `from`; 0 or an errno value. The kernel's own way first:
// it shares the blocks where the file system can. Wherever that stops, reading and writing carries on, and
// meets whatever was the matter itself.
int copyBytes(int from, int to) {
    constexpr std::size_t most = INT_MAX / 2;
    while (retrying([&] { return ::copy_file_range(from, nullptr, to, nullptr, most, 0); }) > 0) {
    }
    const auto buffer = std::make_unique_for_overwrite<char[]>(bufferSize);
    while (true) {
        const ssize_t count = retrying([&] { return ::read(from, buffer.get(), bufferSize); });
        if (count <= 0) {
            return count == 0 ? 0 : errno;
        }
        if (const int code = posix::writeAll(to, buffer.get(), static_cast<std::size_t>(count)); code != 0) {
            return code;
        }
    }
}

// Whether a copy is brought to the disk as soon as it is complete, or together with others.
enum class Sync { now, later };

// Fills the new, empty file `to`.
void fillFile(const Source& source, int to, const fs::path& shown, Sync sync) {
    const int from = source.descriptor.get();
    if (::ioctl(to, FICLONE, from) != 0) {
        require(copyBytes(from, to), shown, notCopied);
    }
    struct stat copied{};
    if (::fstat(to, &copied) != 0) {
        fail(errno, shown, notCopied);
    }
    if (copied.st_size < source.status.st_size) {
        throw posixError(EBUSY, shown, notCopied, "it changed while it was being copied");
    }
    if (sync == Sync::now) {
        require(posix::syncFile(to), shown, notCopied);
    }
}

[[noreturn]] void failToCreate(int code, const fs::path& name, const fs::path& shown) {
    if (code == EEXIST) {
        throw posixError(code, shown, notCopied, "“" + displayName(name) + "” exists already");
    }
    fail(code, shown, notCopied);
}

void copyTree(const Source& source, int folder, const fs::path& name, const fs::path& shown, Sync sync);

void copyEntry(int from, const fs::path& entry, int to) {
    struct stat status{};
    if (::fstatat(from, entry.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        fail(errno, entry, notCopied);
    }
    if (!S_ISLNK(status.st_mode)) {
        copyTree(openSource(from, entry, entry, AT_SYMLINK_NOFOLLOW), to, entry, entry, Sync::later);
        return;
    }
    std::string target(PATH_MAX, '\0');
    const ssize_t length = ::readlinkat(from, entry.c_str(), target.data(), target.size());
    if (length < 0) {
        fail(errno, entry, notCopied);
    }
    target.resize(static_cast<std::size_t>(length));
    if (::symlinkat(target.c_str(), to, entry.c_str()) != 0) {
        fail(errno, entry, notCopied);
    }
}

void copyFolder(const Source& source, int folder, const fs::path& name, const fs::path& shown) {
    const FileDescriptor copy = posix::openFolder(folder, name, O_NOFOLLOW);
    std::vector<fs::path> entries;
    if (!copy || !posix::readNames(source.descriptor.get(), entries)) {
        fail(errno, shown, notCopied);
    }
    for (const fs::path& entry : entries) {
        copyEntry(source.descriptor.get(), entry, copy.get());
    }
}

// Copies to `name` in `folder`, which is not synced, nor is what a folder holds; what was begun there is
// removed when it fails. Messages call the source `shown`.
void copyTree(const Source& source, int folder, const fs::path& name, const fs::path& shown, Sync sync) {
    const bool isFolder = S_ISDIR(source.status.st_mode);
    FileDescriptor file;
    if (isFolder) {
        if (::mkdirat(folder, name.c_str(), 0700) != 0) {
            failToCreate(errno, name, shown);
        }
    } else {
        constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        file = FileDescriptor(retrying([&] { return ::openat(folder, name.c_str(), flags, 0600); }));
        if (!file) {
            failToCreate(errno, name, shown);
        }
    }
    try {
        if (isFolder) {
            copyFolder(source, folder, name, shown);
        } else {
            fillFile(source, file.get(), shown, sync);
        }
    } catch (...) {
        posix::removeTree(folder, name);
        throw;
    }
}

// How many files and folders there are below a folder, counted up to `most`. What can't be opened counts as
// one: the copy will tell.
std::size_t countEntries(int folder, std::size_t most) {
    std::vector<fs::path> names;
    posix::readNames(folder, names);
    std::size_t count = names.size();
    for (auto name = names.begin(); name != names.end() && count < most; ++name) {
        struct stat status{};
        if (::fstatat(folder, name->c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(status.st_mode)) {
            continue;
        }
        if (const FileDescriptor inner = posix::openFolder(folder, *name, O_NOFOLLOW)) {
            count += countEntries(inner.get(), most - count);
        }
    }
    return count;
}

// Whether `folder` is `ancestor` or lies somewhere below it.
bool isWithin(int folder, const struct stat& ancestor) {
    struct stat status{};
    FileDescriptor current = posix::openFolder(folder, ".");
    while (current && ::fstat(current.get(), &status) == 0) {
        if (isSame(status, ancestor)) {
            return true;
        }
        struct stat above{};
        FileDescriptor parent = posix::openFolder(current.get(), "..");
        if (!parent || ::fstat(parent.get(), &above) != 0 || isSame(above, status)) {
            return false;
        }
        current = std::move(parent);
    }
    return false;
}

} // namespace

PosixFileManager::PosixFileManager() : PosixFileManager(userDataDirectory()) {}

PosixFileManager::PosixFileManager(std::optional<fs::path> applicationSupportDirectory)
    : applicationSupportDirectory_(std::move(applicationSupportDirectory)) {
    restoreReserves();
}

// Tries again what may succeed then. What was given back for it is taken back afterwards.
template <class Operation> auto PosixFileManager::insistently(const fs::path& folder, Operation operation) {
    struct Restoration {
        ~Restoration() {
            if (isDue) {
                files.restoreReserves();
            }
        }
        PosixFileManager& files;
        bool isDue = false;
    } restoration{*this};
    for (int attempt = 1;; ++attempt) {
        try {
            return operation();
        } catch (const PlatformError& error) {
            if (attempt == attempts || !makeUpFor(static_cast<int>(error.code()), folder)) {
                throw;
            }
            restoration.isDue = true;
        }
    }
}

std::optional<fs::path> PosixFileManager::applicationSupportDirectory() {
    return applicationSupportDirectory_;
}

bool PosixFileManager::fileExists(const fs::path& path) {
    struct stat status{};
    return path.native().find('\0') == std::string::npos && ::stat(path.c_str(), &status) == 0;
}

std::optional<FileIdentity> PosixFileManager::identity(const fs::path& path) {
    struct stat status{};
    if (path.native().find('\0') != std::string::npos || ::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return FileIdentity{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                        status.st_mtim.tv_nsec};
}

void PosixFileManager::createDirectory(const fs::path& path) {
    requireWholePath(path, notCreated);
    const auto [folder, name] = posix::placeOf(path);
    int code = ::mkdir(path.c_str(), 0700) == 0 ? 0 : errno;
    if (code == ENOENT && !name.empty()) {
        createDirectory(folder);
        code = ::mkdir(path.c_str(), 0700) == 0 ? 0 : errno;
    }
    if (code == EEXIST) {
        struct stat status{};
        if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
            return;
        }
    }
    require(code, path, notCreated);
    const FileDescriptor parent = posix::openFolder(AT_FDCWD, folder);
    require(parent ? posix::syncFolder(parent.get()) : errno, path, notCreated);
}

std::vector<fs::path> PosixFileManager::contentsOfDirectory(const fs::path& path) {
    requireWholePath(path, notRead);
    return insistently({}, [&] {
        const FileDescriptor folder = posix::openFolder(AT_FDCWD, path);
        std::vector<fs::path> names;
        if (!folder || !posix::readNames(folder.get(), names)) {
            fail(errno, path, notRead);
        }
        return names;
    });
}

void PosixFileManager::copyItem(const fs::path& from, const fs::path& to) {
    requireWholePath(from, notCopied);
    requireWholePath(to, notCopied);
    const Source source = openSource(AT_FDCWD, from, from, 0);
    const auto [folderPath, name] = posix::placeOf(to);
    const FileDescriptor folder = posix::openFolder(AT_FDCWD, folderPath);
    if (!folder) {
        throw posixError(errno, folderPath, "couldn’t be opened");
    }
    const bool isFolder = S_ISDIR(source.status.st_mode);
    if (isFolder && isWithin(folder.get(), source.status)) {
        throw posixError(EINVAL, from, notCopied, "a folder can’t be copied into itself");
    }
    if (isFolder && countEntries(source.descriptor.get(), mostEntries + 1) > mostEntries) {
        throw posixError(E2BIG, from, notCopied, "it holds more than 10,000 files and folders");
    }
    copyTree(source, folder.get(), name, from, Sync::now);
    // A folder may hold thousands of files: its whole file system is synced, once.
    const int code = isFolder && ::syncfs(folder.get()) != 0 ? errno : posix::syncFolder(folder.get());
    if (code != 0) {
        posix::removeTree(folder.get(), name);
        fail(code, from, notCopied);
    }
}

void PosixFileManager::linkItem(const fs::path& from, const fs::path& to) {
    requireWholePath(from, notLinked);
    requireWholePath(to, notLinked);
    if (::link(from.c_str(), to.c_str()) != 0) {
        fail(errno, from, notLinked);
    }
    const FileDescriptor folder = posix::openFolder(AT_FDCWD, posix::placeOf(to).folder);
    require(folder ? posix::syncFolder(folder.get()) : errno, to, notLinked);
}

void PosixFileManager::removeItem(const fs::path& path) {
    requireWholePath(path, notRemoved);
    const posix::Place place = posix::placeOf(path);
    insistently({}, [&] {
        const FileDescriptor folder = posix::openFolder(AT_FDCWD, place.folder);
        if (!folder) {
            fail(errno, path, notRemoved);
        }
        const posix::RemovalFailure failure = posix::removeTree(folder.get(), place.name);
        require(failure.code, failure.name, notRemoved);
    });
}

std::string PosixFileManager::contents(const fs::path& path) {
    return insistently(path.parent_path(), [&] { return read(path); });
}

std::string PosixFileManager::read(const fs::path& path) {
    requireWholePath(path, notRead);
    const FileDescriptor file(
        retrying([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat status{};
    if (!file || ::fstat(file.get(), &status) != 0) {
        fail(errno, path, notRead);
    }
    if (!S_ISREG(status.st_mode)) {
        throw posixError(S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP, path, notRead, "it is not a file");
    }
    if (status.st_size > largestReadable) {
        throw posixError(EFBIG, path, notRead, "it is too large");
    }
    std::string bytes;
    std::size_t used = 0;
    while (true) {
        // One byte more than the file holds, so that the usual last read finds the end.
        bytes.resize(std::max(used + 4096, static_cast<std::size_t>(status.st_size) + 1));
        const ssize_t count =
            retrying([&] { return ::read(file.get(), bytes.data() + used, bytes.size() - used); });
        if (count < 0) {
            fail(errno, path, notRead);
        }
        used += static_cast<std::size_t>(count);
        if (count == 0) {
            bytes.resize(used);
            return bytes;
        }
    }
}

// In pieces that stay in the processor's cache: this is asked far more often than the answer is no.
bool PosixFileManager::holds(const fs::path& path, std::string_view bytes) {
    if (path.native().find('\0') != std::string::npos) {
        return false;
    }
    const FileDescriptor file(
        retrying([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat status{};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<std::uint64_t>(status.st_size) != bytes.size()) {
        return false;
    }
    std::array<char, comparedAtATime> piece;
    while (true) {
        const ssize_t count = retrying([&] { return ::read(file.get(), piece.data(), piece.size()); });
        if (count <= 0) {
            return count == 0 && bytes.empty();
        }
        const auto length = static_cast<std::size_t>(count);
        if (length > bytes.size() || std::memcmp(piece.data(), bytes.data(), length) != 0) {
            return false;
        }
        bytes.remove_prefix(length);
    }
}

void PosixFileManager::writeAtomically(const fs::path& path, std::string_view bytes) {
    insistently(path.parent_path(), [&] { replace(path, bytes); });
}

void PosixFileManager::replace(const fs::path& path, std::string_view bytes) {
    requireWholePath(path, notWritten);
    const auto [folderPath, name] = posix::placeOf(path);
    const FileDescriptor folder = posix::openFolder(AT_FDCWD, folderPath);
    if (!folder) {
        fail(errno, path, notWritten);
    }
    if (isFirstWrite(path)) {
        posix::TemporaryFile::removeAbandoned(folder.get(), name);
    }
    const auto file = posix::TemporaryFile::create(folder.get(), name);
    if (!file) {
        fail(errno, path, notWritten);
    }
    require(posix::writeAll(file->get(), bytes.data(), bytes.size()), path, notWritten);
    require(file->sync(), path, notWritten);
    require(file->moveIntoPlace(), path, notWritten);
    require(posix::syncFolder(folder.get()), path, notWritten);
}

void PosixFileManager::keepRoom(const fs::path& folder, std::size_t bytes) {
    const std::lock_guard guard(mutex_);
    Room& room = rooms_[folder];
    if (room.file && room.bytes >= bytes) {
        return;
    }
    // In steps, so that a file that grows a little each time needs a new one rarely.
    constexpr std::size_t step = 65536;
    room.bytes = std::max(room.bytes, (bytes + step - 1) / step * step);
    allocate(folder, room);
}

// Whether an operation of that folder that failed so may succeed now.
bool PosixFileManager::makeUpFor(int code, const fs::path& folder) {
    const std::lock_guard guard(mutex_);
    switch (code) {
    case EAGAIN:
    case EINTR:
    case EIO:
    case ENOMEM:
    case ESTALE:
        return true;
    case EMFILE:
    case ENFILE:
        spares_ = {};
        return true;
    case EDQUOT:
    case ENOSPC: {
        const auto room = rooms_.find(folder);
        const bool isKept = room != rooms_.end() && room->second.file;
        if (isKept) {
            room->second.file = {};
        }
        return isKept;
    }
    default:
        return false;
    }
}

void PosixFileManager::restoreReserves() {
    const std::lock_guard guard(mutex_);
    for (FileDescriptor& spare : spares_) {
        if (!spare) {
            spare = FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        }
    }
    for (auto& [folder, room] : rooms_) {
        if (!room.file) {
            allocate(folder, room);
        }
    }
}

// As much as there is of it. What the file holds already stays.
void PosixFileManager::allocate(const fs::path& folder, Room& room) {
    if (!room.file) {
        room.file = FileDescriptor(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    }
    constexpr std::size_t least = 4096;
    for (std::size_t bytes = room.bytes; room.file && bytes >= least; bytes /= 2) {
        if (::fallocate(room.file.get(), 0, 0, static_cast<off_t>(bytes)) == 0) {
            return;
        }
    }
}

// Looking for what a crash left means reading the folder, which may hold thousands of items: once is enough,
// since nothing of this process is ever left.
bool PosixFileManager::isFirstWrite(const fs::path& path) {
    const std::lock_guard guard(mutex_);
    return written_.insert(path).second;
}

} // namespace cadora
