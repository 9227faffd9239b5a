#pragma once

#include "platform/MediaFramework.h"
#include "sharing/SharedFileManager.h"
#include "sharing/SharedWork.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace cadora {

// A media framework in which one load of a source's duration, and one export of a source to an output, serve
// all who ask for it.
//
// An export begins only when the round closes: each of those who work together deletes the output that is
// there before he asks, and none of them may meet the new one. Work on an output that was deleted since it
// began has perhaps lost what it made, so whoever asks afterwards gets work of his own.
class SharedMediaFramework : public MediaFramework {
public:
    SharedMediaFramework(MediaFramework& media, SharedFileManager& files, MainActor& actor,
                         const std::shared_ptr<Rounds>& rounds);

    CancelAction loadDuration(std::filesystem::path source, Completion<double> completion) override;
    std::unique_ptr<AssetExportSession> makeExportSession(std::filesystem::path source,
                                                          std::string presetName) override;

private:
    class Session;

    struct Load {
        std::filesystem::path source;
        std::optional<FileIdentity> file;

        friend bool operator==(const Load&, const Load&) = default;
    };
    struct Export {
        std::filesystem::path source;
        std::optional<FileIdentity> file;
        std::string presetName;
        std::filesystem::path output;
        std::string fileType;

        friend bool operator==(const Export&, const Export&) = default;
    };
    struct ExportOutcome {
        int status = AssetExportSession::unknown;
        std::optional<PlatformError> error;
    };

    Share<ExportOutcome> share(const Export& wanted, std::unique_ptr<AssetExportSession> session,
                               Completion<ExportOutcome> completion);
    void closeExportsOfRemovedOutputs();

    MediaFramework& media_;
    SharedFileManager& files_;
    MainActor& actor_;
    SharedWorks<Load, double> loads_;
    SharedWorks<Export, ExportOutcome> exports_;
};

} // namespace cadora
