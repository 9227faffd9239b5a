#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace cadora {

// Starts other programs. Main actor only.
class ProcessLauncher {
public:
    virtual ~ProcessLauncher() = default;

    virtual bool isExecutableFile(const std::filesystem::path& path) = 0;

    // Runs the program with the arguments and waits until it exits; its exit status is not examined. Returns
    // at once, and silently, when it can't be started. It gets none of this program's open files.
    virtual void run(const std::filesystem::path& executable, const std::vector<std::string>& arguments) = 0;
};

} // namespace cadora
