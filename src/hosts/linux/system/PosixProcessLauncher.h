#pragma once

#include "platform/ProcessLauncher.h"

namespace cadora {

// Programs started by posix_spawn, with this program's environment.
class PosixProcessLauncher : public ProcessLauncher {
public:
    bool isExecutableFile(const std::filesystem::path& path) override;
    void run(const std::filesystem::path& executable, const std::vector<std::string>& arguments) override;
};

} // namespace cadora
