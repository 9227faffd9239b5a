#include "service/ApiRequests.h"

#include "service/ObjectStore.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <set>

namespace cadora::service {

namespace {

constexpr int badRequest = 400;
constexpr int unprocessable = 422;

nlohmann::json parseObject(std::string_view body, std::initializer_list<std::string_view> keys) {
    nlohmann::json object;
    try {
        object = nlohmann::json::parse(body);
    } catch (const nlohmann::json::parse_error&) {
        throw Refusal(badRequest, "the body is not JSON");
    }
    if (!object.is_object()) {
        throw Refusal(unprocessable, "the body is not an object");
    }
    for (const auto& entry : object.items()) {
        if (std::find(keys.begin(), keys.end(), entry.key()) == keys.end()) {
            throw Refusal(unprocessable, "unknown key \"" + entry.key() + "\"");
        }
        if (entry.value().is_null()) {
            throw Refusal(unprocessable, "\"" + entry.key() + "\" is null");
        }
    }
    return object;
}

std::string requiredText(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) {
        throw Refusal(unprocessable, std::string("\"") + key + "\" must be a string");
    }
    return found->get<std::string>();
}

std::optional<std::string> optionalText(const nlohmann::json& object, const char* key) {
    return object.contains(key) ? std::optional(requiredText(object, key)) : std::nullopt;
}

std::string requiredUuid(const nlohmann::json& object) {
    std::string uuid = requiredText(object, "uuid");
    if (!isObjectName(uuid)) {
        throw Refusal(unprocessable, "\"uuid\" must be 1 to 64 letters, digits, hyphens or underscores");
    }
    return uuid;
}

std::vector<std::string> requiredKeys(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_array() || found->empty()) {
        throw Refusal(unprocessable, std::string("\"") + key + "\" must be an array of file keys");
    }
    std::vector<std::string> names;
    for (const nlohmann::json& name : *found) {
        if (!name.is_string() || !isObjectName(name.get<std::string>())) {
            throw Refusal(unprocessable, std::string("\"") + key + "\" holds something that is no file key");
        }
        names.push_back(name.get<std::string>());
    }
    if (std::set(names.begin(), names.end()).size() != names.size()) {
        throw Refusal(unprocessable, std::string("\"") + key + "\" names a file twice");
    }
    return names;
}

} // namespace

PresignOrder parsePresignOrder(std::string_view body) {
    const nlohmann::json object = parseObject(body, {"uuid", "files"});
    return {requiredUuid(object), requiredKeys(object, "files")};
}

Post parseSyncOrder(std::string_view body) {
    const nlohmann::json object =
        parseObject(body, {"uuid", "body", "visibility", "uploaded_files", "duration", "recorded_at"});
    Post post;
    post.uuid = requiredUuid(object);
    post.body = optionalText(object, "body");
    post.visibility = requiredText(object, "visibility");
    if (post.visibility != "private" && post.visibility != "subscribers") {
        throw Refusal(unprocessable, R"("visibility" must be "private" or "subscribers")");
    }
    post.uploadedFiles = requiredKeys(object, "uploaded_files");
    post.recordedAt = optionalText(object, "recorded_at");
    if (const auto duration = object.find("duration"); duration != object.end()) {
        if (!duration->is_number() || !std::isfinite(duration->get<double>()) ||
            duration->get<double>() < 0) {
            throw Refusal(unprocessable, "\"duration\" must be a number of seconds");
        }
        post.duration = duration->get<double>();
    }
    return post;
}

std::string contentTypeOf(std::string_view fileKey) {
    if (fileKey == "audio") {
        return "audio/mp4";
    }
    if (fileKey == "waveform" || fileKey == "waveform_smooth") {
        return "image/webp";
    }
    return "image/jpeg";
}

} // namespace cadora::service
