#include "hosts/macos/AVFoundationMediaFramework.h"

#include "hosts/macos/DurableFile.h"
#include "hosts/macos/FoundationError.h"
#include "hosts/macos/FoundationText.h"
#include "hosts/macos/ProcessActivity.h"

#include <utility>
#include <variant>
#include <vector>

#import <AVFoundation/AVFoundation.h>
#import <CoreMedia/CoreMedia.h>
#import <Foundation/Foundation.h>

namespace cadora {

namespace {

namespace fs = std::filesystem;

static_assert(AssetExportSession::unknown == static_cast<int>(AVAssetExportSessionStatusUnknown) &&
              AssetExportSession::waiting == static_cast<int>(AVAssetExportSessionStatusWaiting) &&
              AssetExportSession::exporting == static_cast<int>(AVAssetExportSessionStatusExporting) &&
              AssetExportSession::completed == static_cast<int>(AVAssetExportSessionStatusCompleted) &&
              AssetExportSession::failed == static_cast<int>(AVAssetExportSessionStatusFailed) &&
              AssetExportSession::cancelled == static_cast<int>(AVAssetExportSessionStatusCancelled));

NSString* preset(const std::string& name) {
    return name == "AVAssetExportPresetAppleM4A" ? AVAssetExportPresetAppleM4A : nsString(name);
}

AVFileType fileType(const std::string& name) {
    return name == "AVFileTypeAppleM4A" ? AVFileTypeAppleM4A : nsString(name);
}

AVURLAsset* assetOf(const fs::path& source) {
    return [AVURLAsset URLAssetWithURL:fileURL(source) options:nil];
}

// What an export came to.
struct Outcome {
    int status;
    std::optional<PlatformError> error;
};

// Looks at an export that has ended, and moves its output into place. Off the main thread, since it waits for
// the disk.
Outcome conclude(AVAssetExportSession* session, const fs::path& written, const fs::path& output) {
    if (session.status != AVAssetExportSessionStatusCompleted) {
        [[NSFileManager defaultManager] removeItemAtPath:nsString(written.native()) error:nil];
        NSError* const error = session.error;
        return {static_cast<int>(session.status), error ? std::optional(platformError(error)) : std::nullopt};
    }
    int code = syncThroughDrive(written);
    if (code == 0) {
        code = moveReplacing(written, output);
    }
    if (code != 0) {
        [[NSFileManager defaultManager] removeItemAtPath:nsString(written.native()) error:nil];
        return {AssetExportSession::failed, fileError(code, output, "couldn’t be written")};
    }
    return {AssetExportSession::completed, std::nullopt};
}

class AVFoundationExportSession : public AssetExportSession {
public:
    AVFoundationExportSession(MainActor& mainActor, AVAssetExportSession* session)
        : mainActor_(mainActor), session_(session) {}
    ~AVFoundationExportSession() override {
        if (state_ && !state_->outcome) {
            [session_ cancelExport];
        }
    }

    void setOutputURL(fs::path output) override { output_ = std::move(output); }
    void setOutputFileType(std::string type) override { session_.outputFileType = fileType(type); }
    void exportAsynchronously(std::function<void()> handler) override;
    void cancelExport() override { [session_ cancelExport]; }

    int status() const override {
        return state_ && state_->outcome ? state_->outcome->status : static_cast<int>(session_.status);
    }
    std::optional<PlatformError> error() const override {
        return state_ && state_->outcome ? state_->outcome->error : std::nullopt;
    }

private:
    // Main actor only. What the end of the export finds if this object is gone by then.
    struct State {
        std::optional<Outcome> outcome;
    };

    MainActor& mainActor_;
    AVAssetExportSession* session_;
    fs::path output_;
    std::shared_ptr<State> state_;
};

void AVFoundationExportSession::exportAsynchronously(std::function<void()> handler) {
    state_ = std::make_shared<State>();
    const std::weak_ptr<State> weakState = state_;
    const fs::path output = output_;
    const fs::path written = temporaryNameBeside(output);
    MainActor* const actor = &mainActor_;
    AVAssetExportSession* const session = session_;
    session.outputURL = fileURL(written);
    const auto activity = std::make_shared<ProcessActivity>("Converting a recording");
    // The session keeps the block, and the block the session, until the export has ended.
    [session exportAsynchronouslyWithCompletionHandler:^{
      (void)activity;
      const auto outcome = std::make_shared<Outcome>(conclude(session, written, output));
      actor->post([weakState, outcome, handler] {
          if (const auto state = weakState.lock()) {
              state->outcome = *outcome;
              handler();
          }
      });
    }];
}

} // namespace

// Main actor only.
class AVFoundationMediaFramework::LoadedAssets {
public:
    void keep(const fs::path& source, AVURLAsset* asset) {
        // One whose export never comes must not be kept for ever.
        if (kept_.size() == most) {
            kept_.erase(kept_.begin());
        }
        kept_.push_back({source, asset});
    }

    // Nil when none is kept for the file. The latest, since the file may have been another one before.
    AVURLAsset* take(const fs::path& source) {
        AVURLAsset* latest = nil;
        std::erase_if(kept_, [&](const Kept& one) {
            const bool found = one.source == source;
            if (found) {
                latest = one.asset;
            }
            return found;
        });
        return latest;
    }

private:
    static constexpr std::size_t most = 8;

    struct Kept {
        fs::path source;
        AVURLAsset* asset;
    };

    std::vector<Kept> kept_;
};

AVFoundationMediaFramework::AVFoundationMediaFramework(MainActor& mainActor)
    : mainActor_(mainActor), assets_(std::make_shared<LoadedAssets>()) {}

AVFoundationMediaFramework::~AVFoundationMediaFramework() = default;

CancelAction AVFoundationMediaFramework::loadDuration(fs::path source, Completion<double> completion) {
    AVURLAsset* const asset = assetOf(source);
    MainActor* const actor = &mainActor_;
    const std::weak_ptr<LoadedAssets> weakAssets = assets_;
    NSString* const duration = @"duration";
    // What the export asks of the asset is loaded with it: the main thread would wait for it there.
    NSArray<NSString*>* const keys = @[ duration, @"tracks", @"exportable" ];
    [asset loadValuesAsynchronouslyForKeys:keys
                         completionHandler:^{
                           NSError* error = nil;
                           const auto result = std::make_shared<Result<double>>();
                           if ([asset statusOfValueForKey:duration error:&error] == AVKeyValueStatusLoaded) {
                               *result = CMTimeGetSeconds(asset.duration);
                           } else if (error != nil) {
                               *result = failure<double>(platformError(error));
                           } else {
                               *result = failure<double>(
                                   fileError(0, source, "couldn’t be read", "its length was not found"));
                           }
                           actor->post([weakAssets, asset, source, result, completion] {
                               if (const auto assets = weakAssets.lock();
                                   assets && std::holds_alternative<double>(*result)) {
                                   assets->keep(source, asset);
                               }
                               completion(std::move(*result));
                           });
                         }];
    return [asset] { [asset cancelLoading]; };
}

std::unique_ptr<AssetExportSession> AVFoundationMediaFramework::makeExportSession(fs::path source,
                                                                                  std::string presetName) {
    AVURLAsset* const loaded = assets_->take(source);
    AVAssetExportSession* const session =
        [[AVAssetExportSession alloc] initWithAsset:loaded != nil ? loaded : assetOf(source)
                                         presetName:preset(presetName)];
    if (session == nil) {
        return nullptr;
    }
    return std::make_unique<AVFoundationExportSession>(mainActor_, session);
}

} // namespace cadora
