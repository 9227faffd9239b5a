#include "hosts/linux/export/DescriptorIo.h"

#include "hosts/linux/export/ExportError.h"

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cerrno>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace cadora {

namespace {

constexpr int bufferSize = 64 * 1024;

} // namespace

DescriptorIo::DescriptorIo(int descriptor, Mode mode) : descriptor_(descriptor) {
    struct stat status{};
    int failed = fstat(descriptor, &status) == 0 ? 0 : errno;
    if (failed == 0 && !S_ISREG(status.st_mode)) {
        failed = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    if (failed != 0) {
        throw mode == Mode::read ? unreadable(failed) : cannotWrite(failed);
    }
    size_ = status.st_size;
    auto* buffer = static_cast<unsigned char*>(av_malloc(bufferSize));
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    const bool writable = mode == Mode::readWrite;
    context_ = avio_alloc_context(buffer, bufferSize, writable ? 1 : 0, this, &DescriptorIo::readPacket,
                                  writable ? &DescriptorIo::writePacket : nullptr, &DescriptorIo::seek);
    if (context_ == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
}

DescriptorIo::~DescriptorIo() {
    av_free(context_->buffer);
    avio_context_free(&context_);
}

int DescriptorIo::readPacket(void* opaque, std::uint8_t* buffer, int size) {
    auto& self = *static_cast<DescriptorIo*>(opaque);
    const auto wanted = static_cast<std::size_t>(
        std::clamp<std::int64_t>(self.size_ - self.position_, 0, static_cast<std::int64_t>(size)));
    if (wanted == 0) {
        return AVERROR_EOF;
    }
    ssize_t got;
    do {
        got = pread(self.descriptor_, buffer, wanted, self.position_);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        const int failed = errno;
        if (self.errorNumber_ == 0) {
            self.errorNumber_ = failed;
        }
        return AVERROR(failed);
    }
    if (got == 0) {
        return AVERROR_EOF;
    }
    self.position_ += got;
    return static_cast<int>(got);
}

int DescriptorIo::writePacket(void* opaque, std::uint8_t* buffer, int size) {
    auto& self = *static_cast<DescriptorIo*>(opaque);
    int written = 0;
    while (written < size) {
        const ssize_t count = pwrite(self.descriptor_, buffer + written,
                                     static_cast<std::size_t>(size - written), self.position_);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            const int failed = errno;
            if (self.errorNumber_ == 0) {
                self.errorNumber_ = failed;
            }
            return AVERROR(failed);
        }
        written += static_cast<int>(count);
        self.position_ += count;
        self.size_ = std::max(self.size_, self.position_);
    }
    return written;
}

std::int64_t DescriptorIo::seek(void* opaque, std::int64_t offset, int whence) {
    auto& self = *static_cast<DescriptorIo*>(opaque);
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return self.size_;
    case SEEK_SET:
        break;
    case SEEK_CUR:
        offset += self.position_;
        break;
    case SEEK_END:
        offset += self.size_;
        break;
    default:
        return AVERROR(EINVAL);
    }
    if (offset < 0) {
        return AVERROR(EINVAL);
    }
    self.position_ = offset;
    return offset;
}

} // namespace cadora
