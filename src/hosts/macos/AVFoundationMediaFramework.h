#pragma once

#include "base/MainActor.h"
#include "platform/MediaFramework.h"

namespace cadora {

// AVFoundation's assets and export sessions. The names of presets and file types are those of AVFoundation's
// constants.
//
// An export session of the platform's writes where it is told to while it runs. So it is told a hidden name
// beside the output, which gets the final name when everything is on the disk.
class AVFoundationMediaFramework : public MediaFramework {
public:
    explicit AVFoundationMediaFramework(MainActor& mainActor) : mainActor_(mainActor) {}

    CancelAction loadDuration(std::filesystem::path source, Completion<double> completion) override;
    std::unique_ptr<AssetExportSession> makeExportSession(std::filesystem::path source,
                                                          std::string presetName) override;

private:
    MainActor& mainActor_;
};

} // namespace cadora
