#include "app/ServiceProvider.h"

#include "base/Error.h"
#include "outbox/VisibilityPreference.h"
#include "platform/Platform.h"

#include <utility>

namespace cadora {

namespace {

void stage(OutboxStore& store, const URL& fileURL) {
    try {
        const auto path = fileURL.filePath();
        if (!path) {
            throw PlatformError("URL", 0, "the file’s address does not name a file on this computer");
        }
        store.stage(*path, VisibilityPreference::current());
    } catch (...) {
        Platform::current().systemLog.log("[Cadora Helper] stage failed: " +
                                          errorText(std::current_exception()));
    }
}

} // namespace

void ServiceProvider::sendToCadora(const Pasteboard& pasteboard, const std::optional<std::string>&,
                                   std::string& error) {
    std::vector<URL> fileURLs = pasteboard.readURLs();
    std::erase_if(fileURLs, [](const URL& url) { return !url.isFileURL(); });
    if (fileURLs.empty()) {
        error = "No file to send to Cadora.";
        return;
    }
    Platform::current().mainActor.start(stageFiles(queue_, std::move(fileURLs)));
}

Task<void> ServiceProvider::stageFiles(UploadQueue& queue, std::vector<URL> fileURLs) {
    for (const URL& fileURL : fileURLs) {
        stage(queue.store(), fileURL);
        if (queue.onChange) {
            queue.onChange();
        }
        queue.kick();
    }
    co_return;
}

} // namespace cadora
