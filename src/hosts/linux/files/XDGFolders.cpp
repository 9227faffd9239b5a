#include "hosts/linux/files/XDGFolders.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace cadora {

namespace {

namespace fs = std::filesystem;

std::string_view environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string_view() : value;
}

fs::path folder(const char* name, const fs::path& usual) {
    const fs::path path = environment(name);
    return path.is_absolute() ? path : usual;
}

std::vector<fs::path> folders(const char* name, std::vector<fs::path> usual) {
    std::vector<fs::path> result;
    std::string_view rest = environment(name);
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        if (const fs::path path = rest.substr(0, end); path.is_absolute()) {
            result.push_back(path);
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return result.empty() ? std::move(usual) : result;
}

} // namespace

XDGFolders XDGFolders::ofUser() {
    const fs::path home = folder("HOME", "/");
    return {folder("XDG_CONFIG_HOME", home / ".config"), folder("XDG_DATA_HOME", home / ".local/share"),
            folders("XDG_CONFIG_DIRS", {"/etc/xdg"}),
            folders("XDG_DATA_DIRS", {"/usr/local/share", "/usr/share"})};
}

} // namespace cadora
