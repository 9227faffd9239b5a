#pragma once

#include "base/Task.h"
#include "platform/Application.h"
#include "upload/UploadQueue.h"

#include <functional>
#include <string>
#include <vector>

namespace cadora {

// The way in: takes the files that the user sends from the file manager, puts them into the outbox and starts
// the queue. Main actor only.
class ServiceProvider : public ServicesProvider {
public:
    // The queue must outlive the tasks that this starts.
    explicit ServiceProvider(UploadQueue& queue = UploadQueue::shared()) : queue_(queue) {}

    // Called once for each request that was taken, in their order, when all of its files have been dealt
    // with: with a sentence for each that did not get into the outbox, which names it and says why.
    using StagedHandler = std::function<void(const std::vector<std::string>& problems)>;
    StagedHandler onStaged;

    // Reads the pasteboard before it returns; the files are copied afterwards, one after the other. Without a
    // file URL, or with more than 5,000, sets the error and does nothing. A file that can't be copied is
    // logged, and the others go on.
    void sendToCadora(const Pasteboard& pasteboard, const std::optional<std::string>& userData,
                      std::string& error) override;

private:
    static Task<void> stageFiles(UploadQueue& queue, std::vector<URL> fileURLs, StagedHandler onStaged);

    UploadQueue& queue_;
};

} // namespace cadora
