#include "api/WireTypes.h"

#include "base/Json.h"

namespace cadora {

namespace {

json::Value parseObject(std::string_view bytes, const char* record) {
    json::Value object = json::parse(bytes);
    json::requireObject(object, record);
    return object;
}

template <class T> void setIfPresent(json::Record& object, const char* key, const std::optional<T>& value) {
    if (value) {
        object[key] = *value;
    }
}

} // namespace

std::string PresignRequest::encode() const {
    json::Record object;
    object["uuid"] = uuid;
    object["files"] = files;
    return json::write(object);
}

PresignRequest PresignRequest::decode(std::string_view bytes) {
    const json::Value object = parseObject(bytes, "presign request");
    return {json::required<std::string>(object, "uuid"),
            json::required<std::vector<std::string>>(object, "files")};
}

std::string PresignResponse::encode() const {
    json::Record object;
    object["urls"] = urls;
    setIfPresent(object, "headers", headers);
    setIfPresent(object, "expires_in", expires_in);
    return json::write(object);
}

PresignResponse PresignResponse::decode(std::string_view bytes) {
    const json::Value object = parseObject(bytes, "presign response");
    return {json::required<std::map<std::string, std::string>>(object, "urls"),
            json::optional<std::map<std::string, Headers>>(object, "headers"),
            json::optional<std::int64_t>(object, "expires_in")};
}

std::string SyncRequest::encode() const {
    json::Record object;
    object["uuid"] = uuid;
    setIfPresent(object, "body", body);
    object["visibility"] = visibility;
    object["uploaded_files"] = uploaded_files;
    if (duration) {
        object["duration"] = json::number(*duration);
    }
    setIfPresent(object, "recorded_at", recorded_at);
    return json::write(object);
}

SyncRequest SyncRequest::decode(std::string_view bytes) {
    const json::Value object = parseObject(bytes, "sync request");
    return {json::required<std::string>(object, "uuid"),
            json::optional<std::string>(object, "body"),
            json::required<std::string>(object, "visibility"),
            json::required<std::vector<std::string>>(object, "uploaded_files"),
            json::optional<double>(object, "duration"),
            json::optional<std::string>(object, "recorded_at")};
}

std::string SyncResponse::encode() const {
    json::Record object = json::Record::object();
    setIfPresent(object, "success", success);
    setIfPresent(object, "post_id", post_id);
    setIfPresent(object, "uuid", uuid);
    return json::write(object);
}

SyncResponse SyncResponse::decode(std::string_view bytes) {
    const json::Value object = parseObject(bytes, "sync response");
    return {json::optional<bool>(object, "success"), json::optional<std::int64_t>(object, "post_id"),
            json::optional<std::string>(object, "uuid")};
}

} // namespace cadora
