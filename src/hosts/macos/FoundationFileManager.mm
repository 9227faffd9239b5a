#include "hosts/macos/FoundationFileManager.h"

#include "hosts/macos/DurableFile.h"
#include "hosts/macos/FoundationError.h"
#include "hosts/macos/FoundationText.h"

#include <cerrno>
#include <string>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#import <Foundation/Foundation.h>

namespace cadora {

namespace {

namespace fs = std::filesystem;

constexpr const char* notCopied = "couldn’t be copied";
constexpr const char* notCreated = "couldn’t be created";
constexpr const char* notLinked = "couldn’t be given another name";
constexpr const char* notRead = "couldn’t be read";
constexpr const char* notRemoved = "couldn’t be removed";
constexpr const char* notWritten = "couldn’t be written";

NSFileManager* files() {
    return [NSFileManager defaultManager];
}

std::optional<fs::path> userApplicationSupport() {
    NSURL* const url =
        [files() URLsForDirectory:NSApplicationSupportDirectory inDomains:NSUserDomainMask].firstObject;
    return url.path ? std::optional<fs::path>(stdString(url.path)) : std::nullopt;
}

void require(int code, const fs::path& path, const char* whatFailed) {
    if (code != 0) {
        throw fileError(code, path, whatFailed);
    }
}

// The system would silently take what stands before a NUL byte for the whole name.
void requireWholePath(const fs::path& path, const char* whatFailed) {
    if (path.native().find('\0') != std::string::npos) {
        throw fileError(EINVAL, path, whatFailed);
    }
}

// A trailing separator is not part of the name.
fs::path itemPath(const fs::path& path) {
    return path.has_filename() ? path : path.parent_path();
}

fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

void requireNotWithin(const fs::path& folder, const fs::path& source, const fs::path& shown) {
    NSURLRelationship relationship = NSURLRelationshipOther;
    NSError* error = nil;
    if (![files() getRelationship:&relationship
                 ofDirectoryAtURL:fileURL(source)
                      toItemAtURL:fileURL(folder)
                            error:&error]) {
        throw fileError(error, shown, notCopied);
    }
    if (relationship != NSURLRelationshipOther) {
        throw fileError(EINVAL, shown, notCopied, "a folder can’t be copied into itself");
    }
}

// Reading a file that is in iCloud alone would hold up the main thread until all of it has come.
void requireOnThisMac(const struct stat& status, NSString* source, const fs::path& shown) {
    if ((status.st_flags & SF_DATALESS) == 0) {
        return;
    }
    const BOOL begun = [files() startDownloadingUbiquitousItemAtURL:[NSURL fileURLWithPath:source] error:nil];
    throw fileError(EAGAIN, shown, notCopied,
                    begun ? "it is not on this Mac yet; its download has begun, send it again afterwards"
                          : "it is not on this Mac; download it, then send it again");
}

// The system's own word for a folder that it keeps from the program is “Operation not permitted”, which names
// neither the reason nor the remedy.
PlatformError copyError(NSError* error, const fs::path& from) {
    NSError* const underlying = error.userInfo[NSUnderlyingErrorKey];
    const bool isKept = [underlying isKindOfClass:[NSError class]] &&
                        [underlying.domain isEqualToString:NSPOSIXErrorDomain] && underlying.code == EPERM;
    return isKept
               ? fileError(EPERM, from, notCopied,
                           "macOS keeps Cadora Helper from reading it; allow it in System Settings, Privacy "
                           "& Security, Files and Folders")
               : fileError(error, from, notCopied);
}

// Gone again when it has not been moved to its final name.
class TemporaryItem {
public:
    explicit TemporaryItem(const fs::path& finalPath) : path_(temporaryNameBeside(finalPath)) {}
    TemporaryItem(const TemporaryItem&) = delete;
    TemporaryItem& operator=(const TemporaryItem&) = delete;
    ~TemporaryItem() { [files() removeItemAtPath:nsString(path_.native()) error:nil]; }

    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

} // namespace

FoundationFileManager::FoundationFileManager() : FoundationFileManager(userApplicationSupport()) {}

FoundationFileManager::FoundationFileManager(std::optional<fs::path> applicationSupportDirectory)
    : applicationSupportDirectory_(std::move(applicationSupportDirectory)) {}

std::optional<fs::path> FoundationFileManager::applicationSupportDirectory() {
    return applicationSupportDirectory_;
}

bool FoundationFileManager::fileExists(const fs::path& path) {
    return path.native().find('\0') == std::string::npos &&
           [files() fileExistsAtPath:nsString(path.native())];
}

std::optional<FileIdentity> FoundationFileManager::identity(const fs::path& path) {
    struct stat status{};
    if (path.native().find('\0') != std::string::npos || stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return FileIdentity{static_cast<std::uint64_t>(status.st_dev), status.st_ino, status.st_size,
                        status.st_mtimespec.tv_sec, status.st_mtimespec.tv_nsec};
}

void FoundationFileManager::createDirectory(const fs::path& path) {
    requireWholePath(path, notCreated);
    const fs::path item = itemPath(path);
    int code = mkdir(item.c_str(), S_IRWXU) == 0 ? 0 : errno;
    if (code == ENOENT && !item.empty()) {
        createDirectory(folderOf(item));
        code = mkdir(item.c_str(), S_IRWXU) == 0 ? 0 : errno;
    }
    struct stat status{};
    if (code == EEXIST && stat(item.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        return;
    }
    require(code, item, notCreated);
    require(sync(folderOf(item)), item, notCreated);
}

std::vector<fs::path> FoundationFileManager::contentsOfDirectory(const fs::path& path) {
    requireWholePath(path, notRead);
    NSError* error = nil;
    NSArray<NSString*>* const found = [files() contentsOfDirectoryAtPath:nsString(path.native())
                                                                   error:&error];
    if (found == nil) {
        throw fileError(error, path, notRead);
    }
    std::vector<fs::path> names;
    for (NSString* name in found) {
        names.emplace_back(stdString(name));
    }
    return names;
}

void FoundationFileManager::copyItem(const fs::path& from, const fs::path& to) {
    requireWholePath(from, notCopied);
    requireWholePath(to, notCopied);
    struct stat status{};
    if (stat(from.c_str(), &status) != 0) {
        throw fileError(errno, from, notCopied);
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        throw fileError(ENOTSUP, from, notCopied, "it is neither a file nor a folder");
    }
    const fs::path target = itemPath(to);
    const fs::path folder = folderOf(target);
    struct stat folderStatus{};
    if (stat(folder.c_str(), &folderStatus) != 0) {
        throw fileError(errno, folder, "couldn’t be opened");
    }
    NSString* const source = [nsString(from.native()) stringByResolvingSymlinksInPath];
    requireOnThisMac(status, source, from);
    if (S_ISDIR(status.st_mode)) {
        requireNotWithin(folder, stdString(source), from);
    }
    const TemporaryItem copy(target);
    NSError* error = nil;
    if (![files() copyItemAtPath:source toPath:nsString(copy.path().native()) error:&error]) {
        throw copyError(error, from);
    }
    require(unlockAndSync(copy.path()), from, notCopied);
    const int code = moveWithoutReplacing(copy.path(), target);
    if (code == EEXIST) {
        throw fileError(code, from, notCopied, "“" + displayName(target) + "” exists already");
    }
    require(code, from, notCopied);
}

void FoundationFileManager::linkItem(const fs::path& from, const fs::path& to) {
    requireWholePath(from, notLinked);
    requireWholePath(to, notLinked);
    require(link(from.c_str(), to.c_str()) == 0 ? 0 : errno, from, notLinked);
    require(syncThroughDrive(folderOf(itemPath(to))), to, notLinked);
}

void FoundationFileManager::removeItem(const fs::path& path) {
    requireWholePath(path, notRemoved);
    NSError* error = nil;
    if (![files() removeItemAtPath:nsString(itemPath(path).native()) error:&error]) {
        throw fileError(error, path, notRemoved);
    }
}

std::string FoundationFileManager::contents(const fs::path& path) {
    requireWholePath(path, notRead);
    NSError* error = nil;
    NSData* const data = [NSData dataWithContentsOfFile:nsString(path.native()) options:0 error:&error];
    if (data == nil) {
        throw fileError(error, path, notRead);
    }
    return stdString(data);
}

bool FoundationFileManager::holds(const fs::path& path, std::string_view bytes) {
    if (path.native().find('\0') != std::string::npos) {
        return false;
    }
    NSData* const data = [NSData dataWithContentsOfFile:nsString(path.native()) options:0 error:nil];
    return data != nil && stdString(data) == bytes;
}

void FoundationFileManager::writeAtomically(const fs::path& path, std::string_view bytes) {
    requireWholePath(path, notWritten);
    const TemporaryItem file(path);
    require(writeNewFile(file.path(), bytes), path, notWritten);
    require(moveReplacing(file.path(), path), path, notWritten);
    require(syncThroughDrive(folderOf(path)), path, notWritten);
}

void FoundationFileManager::keepRoom(const fs::path&, std::size_t) {}

} // namespace cadora
