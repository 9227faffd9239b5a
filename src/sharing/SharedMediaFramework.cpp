#include "sharing/SharedMediaFramework.h"

#include <algorithm>
#include <utility>

namespace cadora {

namespace {

bool isWithin(const std::filesystem::path& path, const std::filesystem::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

} // namespace

// One user of an export. What the platform's own session says at the end is kept here.
class SharedMediaFramework::Session : public AssetExportSession {
public:
    Session(SharedMediaFramework& framework, Export wanted, std::unique_ptr<AssetExportSession> own)
        : framework_(framework), wanted_(std::move(wanted)), own_(std::move(own)) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() override { share_.leave(); }

    void setOutputURL(std::filesystem::path output) override { wanted_.output = std::move(output); }
    void setOutputFileType(std::string type) override { wanted_.fileType = std::move(type); }

    void exportAsynchronously(std::function<void()> handler) override {
        handler_ = std::move(handler);
        share_ = framework_.share(wanted_, std::move(own_), [this](Result<ExportOutcome> outcome) {
            end(std::get<ExportOutcome>(std::move(outcome)));
        });
    }

    void cancelExport() override {
        if (!handler_ || share_.callOffIfAlone()) {
            return;
        }
        share_.leave();
        framework_.actor_.post([this, alive = std::weak_ptr(alive_)] {
            if (alive.lock() && handler_) {
                end({cancelled, std::nullopt});
            }
        });
    }

    int status() const override {
        if (outcome_.status != unknown || !handler_) {
            return outcome_.status;
        }
        return share_.hasBegun() ? exporting : waiting;
    }
    std::optional<PlatformError> error() const override { return outcome_.error; }

private:
    void end(ExportOutcome outcome) {
        outcome_ = std::move(outcome);
        // The handler may release this session.
        const auto handler = std::exchange(handler_, nullptr);
        handler();
    }

    SharedMediaFramework& framework_;
    Export wanted_;
    std::unique_ptr<AssetExportSession> own_;
    std::function<void()> handler_;
    Share<ExportOutcome> share_;
    ExportOutcome outcome_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>();
};

SharedMediaFramework::SharedMediaFramework(MediaFramework& media, SharedFileManager& files, MainActor& actor,
                                           const std::shared_ptr<Rounds>& rounds)
    : media_(media), files_(files), actor_(actor), loads_(rounds), exports_(rounds) {}

CancelAction SharedMediaFramework::loadDuration(std::filesystem::path source, Completion<double> completion) {
    const Load wanted{source, files_.identity(source)};
    const Share<double> share = loads_.ask(
        wanted, std::move(completion),
        [&media = media_, source = std::move(source)](Completion<double> ended) {
            return media.loadDuration(source, std::move(ended));
        },
        SharedWorks<Load, double>::Begin::atOnce);
    return [share] { share.leave(); };
}

std::unique_ptr<AssetExportSession> SharedMediaFramework::makeExportSession(std::filesystem::path source,
                                                                            std::string presetName) {
    auto own = media_.makeExportSession(source, presetName);
    if (!own) {
        return nullptr;
    }
    const auto file = files_.identity(source);
    return std::make_unique<Session>(*this, Export{std::move(source), file, std::move(presetName), {}, {}},
                                     std::move(own));
}

Share<SharedMediaFramework::ExportOutcome>
SharedMediaFramework::share(const Export& wanted, std::unique_ptr<AssetExportSession> session,
                            Completion<ExportOutcome> completion) {
    closeExportsOfRemovedOutputs();
    std::shared_ptr<AssetExportSession> shared = std::move(session);
    return exports_.ask(
        wanted, std::move(completion),
        [this, wanted, shared](Completion<ExportOutcome> ended) -> CancelAction {
            // What was removed up to now was removed before this export.
            closeExportsOfRemovedOutputs();
            shared->setOutputURL(wanted.output);
            shared->setOutputFileType(wanted.fileType);
            shared->exportAsynchronously([&session = *shared, ended = std::move(ended)] {
                ended(ExportOutcome{session.status(), session.error()});
            });
            return [shared] { shared->cancelExport(); };
        },
        SharedWorks<Export, ExportOutcome>::Begin::whenTheRoundCloses);
}

void SharedMediaFramework::closeExportsOfRemovedOutputs() {
    const auto removed = files_.takeRemoved();
    exports_.closeBegun([&](const Export& under) {
        return std::any_of(removed.begin(), removed.end(),
                           [&](const auto& path) { return isWithin(under.output, path); });
    });
}

} // namespace cadora
