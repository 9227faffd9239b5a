#pragma once

#include "base/Date.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cadora {

// How far the upload pipeline has carried an item.
enum class OutboxState { staged, transcoded, uploaded, synced, failed, deferredAuth };

// The persisted and displayed form of a state: the name of its case.
std::string rawValue(OutboxState state);

// Exact and case-sensitive; absent for any other text.
std::optional<OutboxState> outboxState(std::string_view rawValue);

// One audio file that the user sent and that has not yet become a post.
struct OutboxItem {
    // The identity, and the name of the item's folder. Never changed after staging.
    std::string shortID;
    // The name of the sent file as it was at staging, as text.
    std::string sourceFilename;
    OutboxState state = OutboxState::staged;
    // How often processing has failed; never reset.
    std::int64_t attempts = 0;
    std::optional<std::string> lastError;
    // Seconds of sound, once transcoding has told them.
    std::optional<double> duration;
    Date createdAt;
    std::optional<std::string> visibility;

    const std::string& id() const { return shortID; }

    friend bool operator==(const OutboxItem&, const OutboxItem&) = default;
};

// The index: compact JSON, one object per item in order. Throws json::EncodingError when a value can't be
// written, json::DecodingError when any item can't be read: there is no half of a list.
std::string encodeOutbox(const std::vector<OutboxItem>& items);
std::vector<OutboxItem> decodeOutbox(std::string_view bytes);

} // namespace cadora
