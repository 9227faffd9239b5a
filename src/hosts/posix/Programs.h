#pragma once

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

// What every POSIX host does alike about programs that it starts.
namespace cadora::posix {

inline bool isExecutableFile(const std::filesystem::path& path) {
    struct stat status{};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

// A program and its arguments in the form that posix_spawn takes.
class ArgumentVector {
public:
    ArgumentVector(const std::filesystem::path& program, const std::vector<std::string>& arguments)
        : texts_{program.string()} {
        texts_.insert(texts_.end(), arguments.begin(), arguments.end());
        pointers_.reserve(texts_.size() + 1);
        for (std::string& text : texts_) {
            pointers_.push_back(text.data());
        }
        pointers_.push_back(nullptr);
    }
    ArgumentVector(const ArgumentVector&) = delete;
    ArgumentVector& operator=(const ArgumentVector&) = delete;

    // Ends with a null pointer. Lives as long as this.
    char* const* data() const { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

// Blocks until the child process has ended.
inline void waitForEnd(pid_t process) {
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace cadora::posix
