#pragma once

#include "HostFileManager.h"
#include "fakes/Trace.h"

#include <filesystem>
#include <optional>

namespace cadora::test {

// The real file system, which remembers what was deleted from it.
class RecordingFileManager : public HostFileManager {
public:
    using HostFileManager::HostFileManager;

    Trace trace;
    bool knowsApplicationSupport = true;

    std::optional<std::filesystem::path> applicationSupportDirectory() override {
        return knowsApplicationSupport ? HostFileManager::applicationSupportDirectory() : std::nullopt;
    }
    void removeItem(const std::filesystem::path& path) override {
        trace.add("removeItem " + path.string());
        HostFileManager::removeItem(path);
    }
};

} // namespace cadora::test
