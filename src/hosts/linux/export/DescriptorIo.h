#pragma once

#include <cstdint>
#include <memory>

struct AVIOContext;

namespace cadora {

// FFmpeg's input and output over an open descriptor. Positions are kept here and every access names its
// own, so that several readers, and a reader beside the writer, can share one descriptor. The descriptor
// stays the caller's and outlives the object.
class DescriptorIo {
public:
    enum class Mode { read, readWrite };

    // A regular file; throws ExportError (unreadable or cannotWrite) if it isn't one.
    DescriptorIo(int descriptor, Mode mode);
    ~DescriptorIo();
    DescriptorIo(const DescriptorIo&) = delete;
    DescriptorIo& operator=(const DescriptorIo&) = delete;

    AVIOContext* context() const { return context_; }

    // In bytes: for a reader as the file was when it was opened, so that a file that grows meanwhile
    // keeps the length that was measured.
    std::int64_t size() const { return size_; }

    // The first system error that an access met, 0 if none; FFmpeg may have swallowed it.
    int errorNumber() const { return errorNumber_; }

private:
    static int readPacket(void* opaque, std::uint8_t* buffer, int size);
    static int writePacket(void* opaque, std::uint8_t* buffer, int size);
    static std::int64_t seek(void* opaque, std::int64_t offset, int whence);

    int descriptor_;
    std::int64_t position_ = 0;
    std::int64_t size_ = 0;
    int errorNumber_ = 0;
    AVIOContext* context_ = nullptr;
};

} // namespace cadora
