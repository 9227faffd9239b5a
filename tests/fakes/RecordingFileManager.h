#pragma once

#include "HostFileManager.h"
#include "base/Error.h"
#include "fakes/Trace.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cadora::test {

// The real file system, which remembers what was deleted from it, and fails where it is told to.
class RecordingFileManager : public HostFileManager {
public:
    using HostFileManager::HostFileManager;

    Trace trace;
    bool knowsApplicationSupport = true;
    std::filesystem::path irremovable; // what removeItem() refuses to delete
    // Called before a file is read, or replaced; may throw.
    std::function<void()> onRead = [] {};
    std::function<void()> onWrite = [] {};
    bool knowsLinks = true;
    // The calls of keepRoom().
    std::vector<std::pair<std::filesystem::path, std::size_t>> rooms;

    std::string contents(const std::filesystem::path& path) override {
        onRead();
        return HostFileManager::contents(path);
    }
    void writeAtomically(const std::filesystem::path& path, std::string_view bytes) override {
        onWrite();
        HostFileManager::writeAtomically(path, bytes);
    }
    void linkItem(const std::filesystem::path& from, const std::filesystem::path& to) override {
        if (!knowsLinks) {
            throw PlatformError("test", 1, "there are no links here");
        }
        HostFileManager::linkItem(from, to);
    }
    void keepRoom(const std::filesystem::path& folder, std::size_t bytes) override {
        rooms.emplace_back(folder, bytes);
        HostFileManager::keepRoom(folder, bytes);
    }

    std::optional<std::filesystem::path> applicationSupportDirectory() override {
        return knowsApplicationSupport ? HostFileManager::applicationSupportDirectory() : std::nullopt;
    }
    void removeItem(const std::filesystem::path& path) override {
        trace.add("removeItem " + path.string());
        if (path == irremovable) {
            throw PlatformError("NSPOSIXErrorDomain", EPERM, "it can’t be removed");
        }
        HostFileManager::removeItem(path);
    }
};

} // namespace cadora::test
