#pragma once

#include <filesystem>
#include <vector>

namespace cadora {

// The XDG base directories: where the user's and the system's settings and data are. All are absolute.
struct XDGFolders {
    std::filesystem::path configHome;
    std::filesystem::path dataHome;
    // The system's, the most important first.
    std::vector<std::filesystem::path> configDirs;
    std::vector<std::filesystem::path> dataDirs;

    // As the environment names them; what it doesn't name, or not as an absolute path, is where it usually
    // is.
    static XDGFolders ofUser();
};

} // namespace cadora
