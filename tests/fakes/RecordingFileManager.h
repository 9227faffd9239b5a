#pragma once

#include "fakes/Trace.h"
#include "hosts/linux/PosixFileManager.h"

#include <filesystem>
#include <optional>

namespace cadora::test {

// The real file system, which remembers what was deleted from it.
class RecordingFileManager : public PosixFileManager {
public:
    using PosixFileManager::PosixFileManager;

    Trace trace;
    bool knowsApplicationSupport = true;

    std::optional<std::filesystem::path> applicationSupportDirectory() override {
        return knowsApplicationSupport ? PosixFileManager::applicationSupportDirectory() : std::nullopt;
    }
    void removeItem(const std::filesystem::path& path) override {
        trace.add("removeItem " + path.string());
        PosixFileManager::removeItem(path);
    }
};

} // namespace cadora::test
