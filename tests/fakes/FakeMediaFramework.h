#pragma once

#include "base/MainActor.h"
#include "platform/MediaFramework.h"

#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

// A media framework that says what it is told to say. A completed export writes a file at its output.
class FakeMediaFramework : public MediaFramework {
public:
    explicit FakeMediaFramework(MainActor& actor) : actor_(actor) {}

    Result<double> duration = 12.5;
    bool createsSessions = true;
    int exportStatus = AssetExportSession::completed;
    std::optional<PlatformError> exportError;
    // Exports wait until finishExports().
    bool holdsExports = false;

    // What was asked for, in order, for example "duration source.wav", "export source.wav".
    std::vector<std::string> calls;
    std::vector<std::string> presets;
    std::vector<std::string> fileTypes;
    std::vector<std::filesystem::path> outputs;
    int cancelledExports = 0;
    std::function<void(const std::filesystem::path& source)> onExport;

    CancelAction loadDuration(std::filesystem::path source, Completion<double> completion) override {
        calls.push_back("duration " + source.filename().string());
        actor_.post([completion, result = duration] { completion(result); });
        return nullptr;
    }

    std::unique_ptr<AssetExportSession> makeExportSession(std::filesystem::path source,
                                                          std::string presetName) override {
        presets.push_back(std::move(presetName));
        if (!createsSessions) {
            return nullptr;
        }
        return std::make_unique<Session>(*this, std::move(source));
    }

    void finishExports() {
        for (const auto& finish : std::exchange(held_, {})) {
            actor_.post(finish);
        }
    }

private:
    class Session : public AssetExportSession {
    public:
        Session(FakeMediaFramework& framework, std::filesystem::path source)
            : framework_(framework), source_(std::move(source)) {}

        void setOutputURL(std::filesystem::path output) override {
            output_ = std::move(output);
            framework_.outputs.push_back(output_);
        }
        void setOutputFileType(std::string type) override { framework_.fileTypes.push_back(std::move(type)); }

        void exportAsynchronously(std::function<void()> handler) override {
            framework_.calls.push_back("export " + source_.filename().string());
            if (framework_.onExport) {
                framework_.onExport(source_);
            }
            auto finish = [output = output_, status = framework_.exportStatus, handler] {
                if (status == completed) {
                    std::ofstream(output) << "m4a";
                }
                handler();
            };
            if (framework_.holdsExports) {
                framework_.held_.push_back(finish);
            } else {
                framework_.actor_.post(finish);
            }
        }
        void cancelExport() override { ++framework_.cancelledExports; }

        int status() const override { return framework_.exportStatus; }
        std::optional<PlatformError> error() const override { return framework_.exportError; }

    private:
        FakeMediaFramework& framework_;
        std::filesystem::path source_;
        std::filesystem::path output_;
    };

    MainActor& actor_;
    std::vector<std::function<void()>> held_;
};

} // namespace cadora::test
