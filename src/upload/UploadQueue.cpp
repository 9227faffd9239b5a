#include "upload/UploadQueue.h"

#include "api/APIRequest.h"
#include "api/AuthError.h"
#include "api/AuthenticatedRequest.h"
#include "api/PresignClient.h"
#include "api/R2Uploader.h"
#include "api/UploadError.h"
#include "api/WireTypes.h"
#include "app/Notifier.h"
#include "auth/KeychainStore.h"
#include "base/UTF8.h"
#include "outbox/PostTitle.h"
#include "outbox/VisibilityPreference.h"
#include "platform/Platform.h"
#include "upload/Transcoder.h"

#include <cstdlib>
#include <limits>

namespace cadora {

namespace {

constexpr const char* transcodedName = "recording.m4a";
constexpr const char* fileKey = "audio";

URLRequest syncRequest(const OutboxItem& item) {
    const SyncRequest record{item.shortID,
                             PostTitle::clean(item.sourceFilename),
                             item.visibility.value_or(VisibilityPreference::privateValue),
                             {fileKey},
                             item.duration,
                             std::nullopt};
    return apiRequest("/api/posts/sync", record.encode());
}

// The answer only has to be well formed: what it says of its success is not looked at.
void checkSyncAnswer(const URLSession::Answer& answer) {
    if (answer.response.statusCode != 200) {
        throw AuthError::http(*answer.response.statusCode);
    }
    SyncResponse::decode(answer.data);
}

} // namespace

UploadQueue& UploadQueue::shared() {
    static UploadQueue queue(OutboxStore::shared());
    return queue;
}

UploadQueue::UploadQueue(OutboxStore& store) : store_(store) {}

void UploadQueue::kick() {
    if (!isDraining_) {
        Platform::current().mainActor.start(drain());
    }
}

Task<void> UploadQueue::drain() {
    isDraining_ = true;
    for (OutboxItem& item : store_.load()) {
        if (item.state == OutboxState::synced || item.state == OutboxState::failed) {
            continue;
        }
        std::exception_ptr error;
        try {
            co_await process(item);
        } catch (...) {
            error = std::current_exception();
        }
        if (error) {
            recordFailure(item, error);
        }
        notifyChange();
    }
    isDraining_ = false;
}

// The item belongs to the pass that awaits this, so the reference holds for as long as the frame does.
Task<void> UploadQueue::process(OutboxItem& item) {
    if (!KeychainStore::get(KeychainStore::Key::cadoraToken)) {
        throw AuthError::notSignedIn();
    }
    const auto source = store_.sourceURL(item);
    if (!source) {
        throw UploadError::missingURL("source");
    }
    const auto transcoded = transcodedURL(item);
    if (item.state == OutboxState::staged) {
        item.duration = co_await Transcoder::toM4A(*source, transcoded);
        item.state = OutboxState::transcoded;
        store_.upsert(item);
    }
    if (item.state == OutboxState::transcoded) {
        std::vector<std::string> files{fileKey};
        PresignResponse presign = co_await PresignClient::presign(item.shortID, std::move(files));
        co_await R2Uploader::put(fileKey, transcoded, std::move(presign));
        item.state = OutboxState::uploaded;
        store_.upsert(item);
    }
    if (item.state == OutboxState::uploaded) {
        co_await sync(item);
        Notifier::shared().post("Sent to Cadora ✓", item.sourceFilename + " — private");
        store_.remove(item.shortID);
    }
}

// Building the request and judging the answer work on values alone, and are done off the main thread.
Task<void> UploadQueue::sync(const OutboxItem& item) {
    const Platform& platform = Platform::current();
    auto building =
        runInBackground(platform.mainActor, platform.background, [item] { return syncRequest(item); });
    URLSession::Answer answer = co_await AuthenticatedRequest::send(co_await building);
    auto checking = runInBackground(platform.mainActor, platform.background, [answer = std::move(answer)] {
        checkSyncAnswer(answer);
        return std::monostate{};
    });
    co_await checking;
}

void UploadQueue::recordFailure(OutboxItem& item, const std::exception_ptr& error) {
    if (item.attempts == std::numeric_limits<std::int64_t>::max()) {
        std::abort();
    }
    item.attempts += 1;
    item.lastError = repairedUTF8(errorText(error)); // the index takes nothing but UTF-8
    item.state = isAuthError(error) ? OutboxState::deferredAuth : OutboxState::failed;
    store_.upsert(item);
    Notifier::shared().post("Couldn’t send to Cadora", item.sourceFilename);
}

void UploadQueue::retryFailed() {
    for (OutboxItem& item : store_.load()) {
        if (item.state != OutboxState::failed && item.state != OutboxState::deferredAuth) {
            continue;
        }
        const bool isTranscoded =
            Platform::current().fileManager.fileExists(transcodedURL(item)) && item.duration;
        item.state = isTranscoded ? OutboxState::transcoded : OutboxState::staged;
        item.lastError.reset();
        store_.upsert(item);
    }
    notifyChange();
    kick();
}

void UploadQueue::notifyChange() const {
    if (onChange) {
        onChange();
    }
}

std::filesystem::path UploadQueue::transcodedURL(const OutboxItem& item) const {
    return store_.root() / item.shortID / transcodedName;
}

bool UploadQueue::isAuthError(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const AuthError& known) {
        return known.errorCase() == AuthError::Case::notSignedIn ||
               known.errorCase() == AuthError::Case::refreshRequiresUI ||
               known.errorCase() == AuthError::Case::refreshFailed;
    } catch (...) {
        return false;
    }
}

} // namespace cadora
