#pragma once

#include "hosts/linux/media/worker/OpenFile.h"

#include <cstdint>

struct AVIOContext;

namespace cadora {

// FFmpeg's input and output over an open descriptor. Positions are kept here and every access names its
// own, so that several readers, and a reader beside the writer, can share one descriptor.
class DescriptorIo {
public:
    enum class Mode { read, readWrite };

    DescriptorIo(const OpenFile& file, Mode mode);
    ~DescriptorIo();
    DescriptorIo(const DescriptorIo&) = delete;
    DescriptorIo& operator=(const DescriptorIo&) = delete;

    AVIOContext* context() const { return context_; }

    // As it is now that it has been written to.
    const OpenFile& file() const { return file_; }

    // The first system error that an access met, 0 if none; FFmpeg may have swallowed it.
    int errorNumber() const { return errorNumber_; }

private:
    static int readPacket(void* opaque, std::uint8_t* buffer, int size);
    static int writePacket(void* opaque, const std::uint8_t* buffer, int size);
    static std::int64_t seek(void* opaque, std::int64_t offset, int whence);

    OpenFile file_;
    std::int64_t position_ = 0;
    int errorNumber_ = 0;
    AVIOContext* context_ = nullptr;
};

} // namespace cadora
