#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace cadora::service {

/// What is known of one request. It holds no credential, no signature and no header value but those of
/// content type and accepted types, so that a log can be shown to anyone.
struct LoggedRequest {
    std::int64_t id = 0;
    std::string time; ///< UTC
    std::string method;
    std::string path; ///< without the query
    std::string httpVersion;
    std::vector<std::string> headerNames; ///< lower case, sorted
    std::optional<std::uint64_t> contentLength;
    std::string contentType;
    std::string accept;
    std::string expect;
    bool chunked = false;
    bool authorizationPresent = false;
    bool authorizationValid = false;
    std::int64_t connection = 0; ///< numbers the connections: equal for requests that shared one
    std::optional<std::int64_t> fault;
    std::uint64_t receivedBytes = 0; ///< of the body
    std::optional<int> status;       ///< absent when no answer was begun
    double durationMs = 0;
    bool ended = false;
};

nlohmann::json toJson(const LoggedRequest& request);

/// The requests in order of arrival. One line of JSON goes to the stream when a request ends, before the
/// last byte of its answer leaves: whoever has read an answer finds its request ended here. Any thread may
/// use it.
class RequestLog {
public:
    /// `lines` must outlive the log.
    explicit RequestLog(std::ostream& lines);

    /// Gives the request its number.
    std::int64_t begin(LoggedRequest request);
    /// Stores the request's final facts under its number.
    void end(const LoggedRequest& request);

    /// The newest requests, oldest of them first.
    nlohmann::json list() const;

private:
    static constexpr std::size_t longest_ = 100000;

    std::ostream& lines_;
    mutable std::mutex mutex_;
    std::deque<LoggedRequest> requests_;
    std::int64_t nextId_ = 1;
};

} // namespace cadora::service
