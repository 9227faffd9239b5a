#pragma once

#include "base/MainActor.h"
#include "platform/MediaFramework.h"

namespace cadora {

// AVFoundation's assets and export sessions. The names of presets and file types are those of AVFoundation's
// constants.
//
// An export session of the platform's writes where it is told to while it runs. So it is told a hidden name
// beside the output, which gets the final name when everything is on the disk.
//
// Making a session over an asset that is not loaded would hold up the main thread until it is. So the asset
// whose duration was loaded is kept for the session over the same file.
class AVFoundationMediaFramework : public MediaFramework {
public:
    explicit AVFoundationMediaFramework(MainActor& mainActor);
    AVFoundationMediaFramework(const AVFoundationMediaFramework&) = delete;
    AVFoundationMediaFramework& operator=(const AVFoundationMediaFramework&) = delete;
    ~AVFoundationMediaFramework() override;

    CancelAction loadDuration(std::filesystem::path source, Completion<double> completion) override;
    std::unique_ptr<AssetExportSession> makeExportSession(std::filesystem::path source,
                                                          std::string presetName) override;

private:
    class LoadedAssets;

    MainActor& mainActor_;
    std::shared_ptr<LoadedAssets> assets_;
};

} // namespace cadora
