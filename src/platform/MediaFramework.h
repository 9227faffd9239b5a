#pragma once

#include "base/Completion.h"
#include "base/Error.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace cadora {

// One export of one source to one output file. Main actor only. Releasing a session that is exporting cancels
// the export.
class AssetExportSession {
public:
    // The platform's own numbers; others may come.
    enum Status : int { unknown = 0, waiting = 1, exporting = 2, completed = 3, failed = 4, cancelled = 5 };

    virtual ~AssetExportSession() = default;

    virtual void setOutputURL(std::filesystem::path output) = 0;
    virtual void setOutputFileType(std::string type) = 0;

    // Begins the export; `handler` is called once, on the main actor. The output appears whole, under its
    // final name, before that; nothing appears there when the export doesn't complete.
    virtual void exportAsynchronously(std::function<void()> handler) = 0;
    virtual void cancelExport() = 0;

    virtual int status() const = 0;
    // Why the export did not complete, in the platform's words for the user.
    virtual std::optional<PlatformError> error() const = 0;
};

// Reads media files and writes them in another form. Main actor only.
class MediaFramework {
public:
    virtual ~MediaFramework() = default;

    // The length of the source's sound in seconds; not a number where it has none. Fails with PlatformError
    // when the file can't be read as media.
    virtual CancelAction loadDuration(std::filesystem::path source, Completion<double> completion) = 0;

    // Null when the framework has no way from this source to that preset.
    virtual std::unique_ptr<AssetExportSession> makeExportSession(std::filesystem::path source,
                                                                  std::string presetName) = 0;
};

} // namespace cadora
