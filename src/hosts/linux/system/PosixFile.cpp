#include "hosts/linux/system/PosixFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

namespace cadora::posix {

namespace {

constexpr std::size_t longestName = 255;
constexpr std::size_t randomDigits = 16;
constexpr std::string_view temporarySuffix = ".tmp";

// What the temporary names for a file begin with; together with the digits and the suffix no longer than a
// name may be, and not cut inside a character, which some file systems refuse.
std::string temporaryPrefix(const std::filesystem::path& finalName) {
    constexpr std::size_t room = longestName - 2 - randomDigits - temporarySuffix.size();
    std::string_view name = finalName.native();
    if (name.size() > room) {
        std::size_t end = room;
        while (end > 0 && (static_cast<std::uint8_t>(name[end]) & 0xC0U) == 0x80U) {
            --end;
        }
        name = name.substr(0, end);
    }
    std::string prefix = ".";
    prefix += name;
    prefix += '.';
    return prefix;
}

std::string randomName() {
    std::uint64_t value = 0;
    retrying([&] { return ::getrandom(&value, sizeof value, 0); });
    std::string digits;
    for (std::size_t i = 0; i < randomDigits; ++i) {
        digits += "0123456789abcdef"[value & 0xFU];
        value >>= 4U;
    }
    return digits;
}

bool isTemporaryName(std::string_view name, std::string_view prefix) {
    if (name.size() != prefix.size() + randomDigits + temporarySuffix.size() || !name.starts_with(prefix) ||
        !name.ends_with(temporarySuffix)) {
        return false;
    }
    const std::string_view digits = name.substr(prefix.size(), randomDigits);
    return digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

} // namespace

Place placeOf(const std::filesystem::path& path) {
    const std::filesystem::path item = path.has_filename() ? path : path.parent_path();
    const std::filesystem::path folder = item.parent_path();
    return {folder.empty() ? "." : folder, item.filename()};
}

FileDescriptor openFolder(int base, const std::filesystem::path& path, int flags) {
    return FileDescriptor(
        retrying([&] { return ::openat(base, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags); }));
}

bool readNames(int folder, std::vector<std::filesystem::path>& names) {
    FileDescriptor own = openFolder(folder, ".");
    DIR* const stream = own ? ::fdopendir(own.get()) : nullptr;
    if (stream == nullptr) {
        return false;
    }
    own.release();
    errno = 0;
    while (const dirent* const entry = ::readdir(stream)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    const int code = errno;
    ::closedir(stream);
    errno = code;
    return code == 0;
}

int syncFile(int file) {
    return retrying([&] { return ::fsync(file); }) == 0 ? 0 : errno;
}

int syncFolder(int folder) {
    const int code = syncFile(folder);
    return code == EINVAL || code == ENOTSUP ? 0 : code;
}

int writeAll(int file, const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t written = retrying([&] { return ::write(file, bytes, count); });
        if (written <= 0) {
            return written == 0 ? EIO : errno;
        }
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return 0;
}

RemovalFailure removeTree(int folder, const std::filesystem::path& name) {
    if (::unlinkat(folder, name.c_str(), 0) == 0) {
        return {};
    }
    RemovalFailure failure{errno, name};
    if (failure.code != EISDIR && failure.code != EPERM) {
        return failure;
    }
    const FileDescriptor own = openFolder(folder, name, O_NOFOLLOW);
    if (!own) {
        return errno == ENOTDIR ? failure : RemovalFailure{errno, name};
    }
    failure = {};
    std::vector<std::filesystem::path> names;
    if (!readNames(own.get(), names)) {
        failure = {errno, name};
    }
    for (const std::filesystem::path& entry : names) {
        RemovalFailure inner = removeTree(own.get(), entry);
        if (inner.code != 0 && inner.code != ENOENT && failure.code == 0) {
            failure = std::move(inner);
        }
    }
    if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0 && failure.code == 0) {
        failure = {errno, name};
    }
    return failure;
}

std::unique_ptr<TemporaryFile> TemporaryFile::create(int folder, const std::filesystem::path& finalName) {
    constexpr int attempts = 100;
    const std::string prefix = temporaryPrefix(finalName);
    for (int i = 0; i < attempts; ++i) {
        std::string name = prefix + randomName();
        name += temporarySuffix;
        FileDescriptor file(retrying([&] {
            return ::openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        }));
        if (file) {
            // Without locks on this file system, what a crash leaves is never taken for abandoned.
            ::flock(file.get(), LOCK_EX | LOCK_NB);
            return std::unique_ptr<TemporaryFile>(
                new TemporaryFile(folder, std::move(file), std::move(name), finalName));
        }
        if (errno != EEXIST) {
            return nullptr;
        }
    }
    return nullptr;
}

void TemporaryFile::removeAbandoned(int folder, const std::filesystem::path& finalName) {
    const std::string prefix = temporaryPrefix(finalName);
    std::vector<std::filesystem::path> names;
    readNames(folder, names);
    for (const std::filesystem::path& name : names) {
        if (!isTemporaryName(name.native(), prefix)) {
            continue;
        }
        const FileDescriptor file(retrying(
            [&] { return ::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
        if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
            ::unlinkat(folder, name.c_str(), 0);
        }
    }
}

TemporaryFile::TemporaryFile(int folder, FileDescriptor file, std::filesystem::path name,
                             std::filesystem::path finalName)
    : folder_(folder), file_(std::move(file)), name_(std::move(name)), finalName_(std::move(finalName)) {}

TemporaryFile::~TemporaryFile() {
    if (!name_.empty()) {
        ::unlinkat(folder_, name_.c_str(), 0);
    }
}

int TemporaryFile::moveIntoPlace() {
    if (::renameat(folder_, name_.c_str(), folder_, finalName_.c_str()) != 0) {
        return errno;
    }
    name_.clear();
    return 0;
}

} // namespace cadora::posix
