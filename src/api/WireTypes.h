#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The JSON records of the service's API. Fields are named as their keys on the wire. Encoding throws
// json::EncodingError for a value that JSON can't represent; decoding throws json::DecodingError for anything
// but a whole, well-formed record.
namespace cadora {

struct PresignRequest {
    std::string uuid;
    std::vector<std::string> files;

    std::string encode() const;
    static PresignRequest decode(std::string_view bytes);

    friend bool operator==(const PresignRequest&, const PresignRequest&) = default;
};

struct PresignResponse {
    // Header name to its values.
    using Headers = std::map<std::string, std::vector<std::string>>;

    // File key to presigned URL.
    std::map<std::string, std::string> urls;
    // File key to the headers that must go with its upload.
    std::optional<std::map<std::string, Headers>> headers;
    // Lifetime of the URLs in seconds.
    std::optional<std::int64_t> expires_in;

    std::string encode() const;
    static PresignResponse decode(std::string_view bytes);

    friend bool operator==(const PresignResponse&, const PresignResponse&) = default;
};

struct SyncRequest {
    std::string uuid;
    std::optional<std::string> body;
    std::string visibility;
    std::vector<std::string> uploaded_files;
    // Seconds.
    std::optional<double> duration;
    std::optional<std::string> recorded_at;

    std::string encode() const;
    static SyncRequest decode(std::string_view bytes);

    friend bool operator==(const SyncRequest&, const SyncRequest&) = default;
};

struct SyncResponse {
    std::optional<bool> success;
    std::optional<std::int64_t> post_id;
    std::optional<std::string> uuid;

    std::string encode() const;
    static SyncResponse decode(std::string_view bytes);

    friend bool operator==(const SyncResponse&, const SyncResponse&) = default;
};

} // namespace cadora
