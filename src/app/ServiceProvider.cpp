#include "app/ServiceProvider.h"

#include "base/Error.h"
#include "base/PathRules.h"
#include "base/UTF8.h"
#include "outbox/VisibilityPreference.h"
#include "platform/Platform.h"

#include <optional>
#include <string>
#include <utility>

namespace cadora {

namespace {

// Each of them is copied, listed and gets a pass of the queue in one turn of the main thread.
constexpr std::size_t mostFilesAtOnce = 5000;

std::string quotedName(const URL& fileURL) {
    return "“" + repairedUTF8(lastPathComponent(fileURL.text())) + "” ";
}

// Why the file did not get into the outbox; absent when it did.
std::optional<std::string> stage(OutboxStore& store, const URL& fileURL) {
    try {
        const auto path = fileURL.filePath();
        if (!path) {
            throw PlatformError("URL", 0, quotedName(fileURL) + "is no address of a file on this computer");
        }
        const OutboxItem item = store.stage(*path, VisibilityPreference::current());
        if (const auto& problem = store.saveProblem()) {
            return "“" + item.sourceFilename + "” was copied, but not put on the outbox’s list: " + *problem;
        }
        return std::nullopt;
    } catch (...) {
        std::string problem = errorText(std::current_exception());
        Platform::current().systemLog.log("[Cadora Helper] stage failed: " + problem);
        return problem;
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
    if (fileURLs.size() > mostFilesAtOnce) {
        error = "These are too many files to send to Cadora at once: it takes 5,000 at most.";
        return;
    }
    Platform::current().mainActor.start(stageFiles(queue_, std::move(fileURLs), onStaged));
}

Task<void> ServiceProvider::stageFiles(UploadQueue& queue, std::vector<URL> fileURLs,
                                       StagedHandler onStaged) {
    std::vector<std::string> problems;
    for (const URL& fileURL : fileURLs) {
        if (auto problem = stage(queue.store(), fileURL)) {
            problems.push_back(*std::move(problem));
        }
        if (queue.onChange) {
            queue.onChange();
        }
        queue.kick();
    }
    if (onStaged) {
        onStaged(problems);
    }
    co_return;
}

} // namespace cadora
