#include "hosts/linux/media/worker/DescriptorIo.h"

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cerrno>
#include <new>
#include <unistd.h>

namespace cadora {

namespace {

constexpr int bufferSize = 64 * 1024;

} // namespace

DescriptorIo::DescriptorIo(const OpenFile& file, Mode mode) : file_(file) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(bufferSize));
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    const bool writable = mode == Mode::readWrite;
    context_ = avio_alloc_context(buffer, bufferSize, writable ? 1 : 0, this, &DescriptorIo::readPacket,
                                  nullptr, &DescriptorIo::seek);
    if (context_ == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
    if (writable) {
        // The bytes are const from FFmpeg 7 on.
        context_->write_packet = [](void* opaque, auto* bytes, int size) {
            return writePacket(opaque, bytes, size);
        };
    }
}

DescriptorIo::~DescriptorIo() {
    av_free(context_->buffer);
    avio_context_free(&context_);
}

int DescriptorIo::readPacket(void* opaque, std::uint8_t* buffer, int size) {
    auto& self = *static_cast<DescriptorIo*>(opaque);
    const auto wanted = static_cast<std::size_t>(
        std::clamp<std::int64_t>(self.file_.size - self.position_, 0, static_cast<std::int64_t>(size)));
    if (wanted == 0) {
        return AVERROR_EOF;
    }
    ssize_t got;
    do {
        got = pread(self.file_.descriptor, buffer, wanted, self.position_);
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

int DescriptorIo::writePacket(void* opaque, const std::uint8_t* buffer, int size) {
    auto& self = *static_cast<DescriptorIo*>(opaque);
    int written = 0;
    while (written < size) {
        const ssize_t count = pwrite(self.file_.descriptor, buffer + written,
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
        self.file_.size = std::max(self.file_.size, self.position_);
    }
    return written;
}

std::int64_t DescriptorIo::seek(void* opaque, std::int64_t offset, int whence) {
    auto& self = *static_cast<DescriptorIo*>(opaque);
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return self.file_.size;
    case SEEK_SET:
        break;
    case SEEK_CUR:
        offset += self.position_;
        break;
    case SEEK_END:
        offset += self.file_.size;
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
