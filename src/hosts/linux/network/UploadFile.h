#pragma once

#include "base/Error.h"
#include "hosts/linux/system/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace cadora {

// A regular file that is being sent: opened once, its size fixed at that moment. It stays the file that was
// opened, whatever is renamed or deleted meanwhile. One thread at a time.
class UploadFile {
public:
    // Throws PlatformError, whose text names the file and the reason, when the file is missing, can't be
    // read or isn't a regular file.
    explicit UploadFile(std::filesystem::path path);

    // The last component of the path, fit for display.
    std::string name() const;

    // In bytes.
    std::int64_t size() const { return size_; }

    // Up to `capacity` of the next bytes; 0 only when all have been read. Throws PlatformError when the file
    // can't be read or has another size than when it was opened; a file that changed is noticed at the latest
    // before its last byte is handed out, so nobody receives the whole length of it.
    std::size_t read(char* buffer, std::size_t capacity);

    // Where the next read begins.
    void seek(std::int64_t offset) { offset_ = offset; }

private:
    PlatformError changed() const;

    std::filesystem::path path_;
    FileDescriptor file_;
    std::int64_t size_ = 0;
    std::int64_t offset_ = 0;
};

} // namespace cadora
