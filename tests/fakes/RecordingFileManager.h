#pragma once

#include "HostFileManager.h"
#include "base/Error.h"
#include "fakes/Trace.h"

#include <cerrno>
#include <filesystem>
#include <optional>

namespace cadora::test {

// The real file system, which remembers what was deleted from it.
class RecordingFileManager : public HostFileManager {
public:
    using HostFileManager::HostFileManager;

    Trace trace;
    bool knowsApplicationSupport = true;
    std::filesystem::path irremovable; // what removeItem() refuses to delete

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
