#pragma once

#include "base/MainActor.h"
#include "platform/MediaFramework.h"
#include "platform/SystemLog.h"

#include <chrono>
#include <cstddef>

namespace cadora {

// Media through FFmpeg's libraries, which run in a worker process of their own for each request: a broken
// file can crash a decoder but not this program. The worker is given open descriptors and learns no file
// name.
//
// Errors that the worker reports have the domain `errorDomain`, its code and its sentence; those that concern
// the worker itself have a negative code. What can't be opened or written is a "POSIX" error. What the worker
// says on its standard error goes to the system log.
class FfmpegMediaFramework : public MediaFramework {
public:
    static constexpr const char* errorDomain = "FFmpeg";
    enum ErrorCode : int {
        stoppedUnexpectedly = -1,
        stoppedResponding = -2,
        answeredRubbish = -3,
        couldNotStart = -4,
        exportCancelled = -5,
        unsupportedFileType = -6,
        tookTooLong = -7,
    };

    struct Limits {
        // A worker that makes no progress for this long, or up to twice as long, is ended.
        std::chrono::milliseconds stall = std::chrono::minutes(2);
        // Further requests wait for their turn.
        std::size_t workers = 2;
        // No worker holds up what waits for longer than this and a second for each bytesPerSecond of its
        // source, and none for longer than longestTime. The worker's own bounds are far below that, unless
        // the user's programs leave it no processor.
        std::chrono::milliseconds time = std::chrono::minutes(15);
        std::chrono::milliseconds longestTime = std::chrono::hours(6);
        static constexpr std::int64_t bytesPerSecond = 10000;

        std::chrono::milliseconds timeFor(std::int64_t sourceSize) const;
    };

    // `worker` is the path of cadora-export. The actor and the log outlive this object.
    FfmpegMediaFramework(MainActor& actor, SystemLog& log, std::filesystem::path worker, Limits limits);
    FfmpegMediaFramework(MainActor& actor, SystemLog& log, std::filesystem::path worker);
    FfmpegMediaFramework(const FfmpegMediaFramework&) = delete;
    FfmpegMediaFramework& operator=(const FfmpegMediaFramework&) = delete;

    // Ends what is under way, without calling any completion.
    ~FfmpegMediaFramework() override;

    CancelAction loadDuration(std::filesystem::path source, Completion<double> completion) override;

    std::unique_ptr<AssetExportSession> makeExportSession(std::filesystem::path source,
                                                          std::string presetName) override;

private:
    class Run;
    class Session;
    class Workers;

    std::shared_ptr<Workers> workers_;
};

} // namespace cadora
