#include "outbox/OutboxItem.h"

#include "base/Json.h"

#include <array>
#include <utility>

namespace cadora {

namespace {

constexpr std::array<std::pair<OutboxState, const char*>, 6> states{{
    {OutboxState::staged, "staged"},
    {OutboxState::transcoded, "transcoded"},
    {OutboxState::uploaded, "uploaded"},
    {OutboxState::synced, "synced"},
    {OutboxState::failed, "failed"},
    {OutboxState::deferredAuth, "deferredAuth"},
}};

json::Record encode(const OutboxItem& item) {
    json::Record object = json::Record::object();
    object["shortID"] = item.shortID;
    object["sourceFilename"] = item.sourceFilename;
    object["state"] = rawValue(item.state);
    object["attempts"] = item.attempts;
    if (item.lastError) {
        object["lastError"] = *item.lastError;
    }
    if (item.duration) {
        object["duration"] = json::number(*item.duration);
    }
    object["createdAt"] = json::number(item.createdAt.secondsSinceReferenceDate);
    if (item.visibility) {
        object["visibility"] = *item.visibility;
    }
    return object;
}

OutboxItem decode(const json::Value& object) {
    json::requireObject(object, "item");
    OutboxItem item;
    item.shortID = json::required<std::string>(object, "shortID");
    item.sourceFilename = json::required<std::string>(object, "sourceFilename");
    const auto state = outboxState(json::required<std::string>(object, "state"));
    if (!state) {
        throw json::DecodingError("“state” is not a known state");
    }
    item.state = *state;
    item.attempts = json::required<std::int64_t>(object, "attempts");
    item.lastError = json::optional<std::string>(object, "lastError");
    item.duration = json::optional<double>(object, "duration");
    item.createdAt = {json::required<double>(object, "createdAt")};
    item.visibility = json::optional<std::string>(object, "visibility");
    return item;
}

} // namespace

std::string rawValue(OutboxState state) {
    return states.at(static_cast<std::size_t>(state)).second;
}

std::optional<OutboxState> outboxState(std::string_view rawValue) {
    for (const auto& [state, name] : states) {
        if (rawValue == name) {
            return state;
        }
    }
    return std::nullopt;
}

std::string encodeOutbox(const std::vector<OutboxItem>& items) {
    json::Record array = json::Record::array();
    for (const OutboxItem& item : items) {
        array.push_back(encode(item));
    }
    return json::write(array);
}

std::vector<OutboxItem> decodeOutbox(std::string_view bytes) {
    const json::Value array = json::parse(bytes);
    json::requireArray(array, "outbox");
    std::vector<OutboxItem> items;
    items.reserve(array.size());
    for (const json::Value& object : array) {
        items.push_back(decode(object));
    }
    return items;
}

} // namespace cadora
