#include "hosts/linux/network/UploadFile.h"

#include "hosts/linux/system/PosixError.h"
#include "hosts/linux/system/PosixFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cadora {

namespace {

constexpr const char* notOpened = "couldn’t be opened";
constexpr const char* notRead = "couldn’t be read";
constexpr const char* notUploaded = "couldn’t be uploaded";

} // namespace

// O_NONBLOCK: opening a pipe or a device must not wait for its other end.
UploadFile::UploadFile(std::filesystem::path path)
    : path_(std::move(path)), file_(posix::retrying([this] {
          return ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
      })) {
    struct stat status{};
    if (!file_ || ::fstat(file_.get(), &status) != 0) {
        throw posixError(errno, path_, notOpened);
    }
    if (!S_ISREG(status.st_mode)) {
        throw posixError(EINVAL, path_, notUploaded, "it is not a regular file");
    }
    size_ = status.st_size;
    ::posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
}

std::string UploadFile::name() const {
    return displayName(path_);
}

std::size_t UploadFile::read(char* buffer, std::size_t capacity) {
    const auto wanted = static_cast<std::size_t>(
        std::min<std::int64_t>(static_cast<std::int64_t>(capacity), size_ - offset_));
    if (wanted == 0) {
        return 0;
    }
    const ssize_t got =
        posix::retrying([&] { return ::pread(file_.get(), buffer, wanted, static_cast<off_t>(offset_)); });
    if (got < 0) {
        throw posixError(errno, path_, notRead);
    }
    if (got == 0) {
        throw changed();
    }
    if (offset_ + got == size_) {
        struct stat status{};
        if (::fstat(file_.get(), &status) != 0) {
            throw posixError(errno, path_, notRead);
        }
        if (status.st_size != size_) {
            throw changed();
        }
    }
    offset_ += got;
    return static_cast<std::size_t>(got);
}

PlatformError UploadFile::changed() const {
    return posixError(EIO, path_, notUploaded, "its size changed while it was being sent");
}

} // namespace cadora
