#pragma once

#include <unistd.h>

#include <utility>

namespace cadora {

// Owns one open file descriptor, or none.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~FileDescriptor() { reset(); }

    // Negative when none is owned.
    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

    int release() { return std::exchange(number_, -1); }

    void reset(int number = -1) {
        if (number_ >= 0) {
            ::close(number_);
        }
        number_ = number;
    }

private:
    int number_ = -1;
};

} // namespace cadora
