#include "hosts/macos/DurableFile.h"

#include "base/PathRules.h"
#include "hosts/macos/FoundationText.h"

#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#import <Foundation/Foundation.h>

namespace cadora {

namespace {

namespace fs = std::filesystem;

// Repeats a system call that a signal interrupted.
template <class Call> auto retrying(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

class OpenFile {
public:
    OpenFile(const fs::path& path, int flags, mode_t mode = 0)
        : descriptor_(retrying([&] { return open(path.c_str(), flags | O_CLOEXEC, mode); })) {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

private:
    int descriptor_;
};

// A file system that has no such thing, as some of servers have none for folders, is no failure.
int syncDescriptor(int descriptor) {
    if (retrying([&] { return fsync(descriptor); }) == 0 || errno == ENOTSUP || errno == EINVAL) {
        return 0;
    }
    return errno;
}

int syncDescriptorThroughDrive(int descriptor) {
    return retrying([&] { return fcntl(descriptor, F_FULLFSYNC); }) == 0 ? 0 : syncDescriptor(descriptor);
}

// Where a drive knows no order, its cache is emptied.
int syncDescriptorInOrder(int descriptor) {
    return retrying([&] { return fcntl(descriptor, F_BARRIERFSYNC); }) == 0
               ? 0
               : syncDescriptorThroughDrive(descriptor);
}

int writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = retrying([&] { return write(descriptor, bytes.data(), bytes.size()); });
        if (written <= 0) {
            return written == 0 ? EIO : errno;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

int unlockAndSyncOne(const fs::path& path) {
    struct stat status{};
    if (lstat(path.c_str(), &status) != 0) {
        return errno;
    }
    constexpr unsigned locks = UF_IMMUTABLE | UF_APPEND;
    if ((status.st_flags & locks) != 0 && lchflags(path.c_str(), status.st_flags & ~locks) != 0 &&
        errno != ENOTSUP) {
        return errno;
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        return 0;
    }
    const OpenFile item(path, O_RDONLY | O_NOFOLLOW);
    if (!item) {
        return errno;
    }
    return syncDescriptor(item.get());
}

OpenFile openForSync(const fs::path& path) {
    return {path.empty() ? fs::path(".") : path, O_RDONLY};
}

} // namespace

int sync(const fs::path& path) {
    const OpenFile item = openForSync(path);
    return item ? syncDescriptor(item.get()) : errno;
}

int syncThroughDrive(const fs::path& path) {
    const OpenFile item = openForSync(path);
    return item ? syncDescriptorThroughDrive(item.get()) : errno;
}

int unlockAndSync(const fs::path& path) {
    NSDirectoryEnumerator<NSString*>* const inside =
        [[NSFileManager defaultManager] enumeratorAtPath:nsString(path.native())];
    for (NSString* name in inside) {
        if (const int code = unlockAndSyncOne(path / stdString(name)); code != 0) {
            return code;
        }
    }
    return unlockAndSyncOne(path);
}

int writeNewFile(const fs::path& path, std::string_view bytes) {
    const OpenFile file(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (!file) {
        return errno;
    }
    const int code = writeAll(file.get(), bytes);
    return code != 0 ? code : syncDescriptorInOrder(file.get());
}

int moveReplacing(const fs::path& from, const fs::path& to) {
    return rename(from.c_str(), to.c_str()) == 0 ? sync(to.parent_path()) : errno;
}

int moveWithoutReplacing(const fs::path& from, const fs::path& to) {
    if (renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0) {
        return sync(to.parent_path());
    }
    if (errno != ENOTSUP) {
        return errno;
    }
    struct stat status{};
    return lstat(to.c_str(), &status) == 0 ? EEXIST : moveReplacing(from, to);
}

fs::path temporaryNameBeside(const fs::path& path) {
    std::string name = "." + stdString([NSUUID UUID].UUIDString);
    if (const std::string extension = pathExtension(path.filename().native()); !extension.empty()) {
        name += "." + extension;
    }
    return path.parent_path() / name;
}

} // namespace cadora
