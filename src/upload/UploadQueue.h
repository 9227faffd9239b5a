#pragma once

#include "base/MainActor.h"
#include "base/Task.h"
#include "outbox/OutboxStore.h"

#include <exception>
#include <functional>

namespace cadora {

// Carries the items of the outbox to the service: transcode, presign, upload, sync. Nothing runs on a timer;
// work starts when somebody calls kick() or retryFailed(), and after each finished step the item's state is
// stored, so that an interrupted item resumes there. Main actor only.
class UploadQueue {
public:
    // The one queue of the process, over OutboxStore::shared(), made on first use.
    static UploadQueue& shared();

    explicit UploadQueue(OutboxStore& store);
    UploadQueue(const UploadQueue&) = delete;
    UploadQueue& operator=(const UploadQueue&) = delete;

    OutboxStore& store() { return store_; }

    // True while a pass runs. A best-effort guard: the pass sets it, kick() reads it, and several kicks
    // within one turn each start a pass of their own.
    bool isDraining() const { return isDraining_; }

    // Called after every item that a pass has handled and once per retryFailed().
    std::function<void()> onChange;

    // Starts a pass over the outbox unless one is running.
    void kick();

    // Makes every `failed` and `deferredAuth` item ready to be sent again, then kicks.
    void retryFailed();

private:
    Task<void> drain();
    Task<void> process(OutboxItem& item);
    Task<void> sync(const OutboxItem& item);
    void recordFailure(OutboxItem& item, const std::exception_ptr& error);
    void notifyChange() const;
    std::filesystem::path transcodedURL(const OutboxItem& item) const;
    static bool isAuthError(const std::exception_ptr& error);

    OutboxStore& store_;
    bool isDraining_ = false;
};

} // namespace cadora
