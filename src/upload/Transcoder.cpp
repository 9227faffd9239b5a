#include "upload/Transcoder.h"

#include "platform/Platform.h"
#include "upload/TranscodeError.h"

#include <cmath>

namespace cadora {

namespace {

constexpr const char* presetAppleM4A = "AVAssetExportPresetAppleM4A";
constexpr const char* fileTypeAppleM4A = "AVFileTypeAppleM4A";

// Throws unless the session has completed.
void checkOutcome(const AssetExportSession& session) {
    switch (const int status = session.status()) {
    case AssetExportSession::completed:
        return;
    case AssetExportSession::failed:
    case AssetExportSession::cancelled: {
        const auto error = session.error();
        throw TranscodeError::exportFailed(error ? std::optional(error->message()) : std::nullopt);
    }
    default:
        throw TranscodeError::exportFailed("unexpected status " + std::to_string(status));
    }
}

std::monostate clear(FileManager& files, const std::filesystem::path& output) {
    if (files.fileExists(output)) {
        files.removeItem(output);
    }
    return {};
}

} // namespace

Task<double> Transcoder::toM4A(std::filesystem::path source, std::filesystem::path output) {
    const Platform& platform = Platform::current();
    OperationAwaiter<double> loading(platform.mainActor, [&](Completion<double> completion) {
        return platform.mediaFramework.loadDuration(source, std::move(completion));
    });
    const double seconds = co_await loading;
    if (!std::isfinite(seconds) || seconds <= 0) {
        throw TranscodeError::noDuration();
    }
    const auto session = platform.mediaFramework.makeExportSession(source, presetAppleM4A);
    if (!session) {
        throw TranscodeError::cannotCreateExport();
    }
    auto clearing = runInBackground(platform.mainActor, platform.background,
                                    [output, &files = platform.fileManager] { return clear(files, output); });
    co_await clearing;
    session->setOutputURL(output);
    session->setOutputFileType(fileTypeAppleM4A);
    OperationAwaiter<std::monostate> exporting(
        platform.mainActor, [&](Completion<std::monostate> completion) -> CancelAction {
            session->exportAsynchronously(
                [completion = std::move(completion)] { completion(std::monostate{}); });
            return [&session] { session->cancelExport(); };
        });
    co_await exporting;
    checkOutcome(*session);
    co_return seconds;
}

} // namespace cadora
