#include "service/RequestLog.h"

#include <utility>

namespace cadora::service {

nlohmann::json toJson(const LoggedRequest& request) {
    nlohmann::json record = {{"id", request.id},
                             {"time", request.time},
                             {"method", request.method},
                             {"path", request.path},
                             {"http_version", request.httpVersion},
                             {"headers", request.headerNames},
                             {"content_length", nullptr},
                             {"content_type", request.contentType},
                             {"accept", request.accept},
                             {"expect", request.expect},
                             {"chunked", request.chunked},
                             {"authorization_present", request.authorizationPresent},
                             {"authorization_valid", request.authorizationValid},
                             {"connection", request.connection},
                             {"fault", nullptr},
                             {"received_bytes", request.receivedBytes},
                             {"status", nullptr},
                             {"duration_ms", request.durationMs},
                             {"ended", request.ended}};
    if (request.contentLength) {
        record["content_length"] = *request.contentLength;
    }
    if (request.fault) {
        record["fault"] = *request.fault;
    }
    if (request.status) {
        record["status"] = *request.status;
    }
    return record;
}

namespace {

/// A request line may hold any byte: what is not UTF-8 is replaced, so that the log stays JSON.
std::string line(const nlohmann::json& record) {
    return record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

RequestLog::RequestLog(std::ostream& lines) : lines_(lines) {}

std::int64_t RequestLog::begin(LoggedRequest request) {
    const std::lock_guard lock(mutex_);
    request.id = nextId_++;
    requests_.push_back(std::move(request));
    if (requests_.size() > longest_) {
        requests_.pop_front();
    }
    return requests_.back().id;
}

void RequestLog::end(const LoggedRequest& request) {
    const std::lock_guard lock(mutex_);
    const std::int64_t index = request.id - requests_.front().id;
    if (index >= 0) {
        requests_[static_cast<std::size_t>(index)] = request;
    }
    lines_ << line(toJson(request)) << '\n' << std::flush;
}

nlohmann::json RequestLog::list() const {
    const std::lock_guard lock(mutex_);
    nlohmann::json all = nlohmann::json::array();
    for (const LoggedRequest& request : requests_) {
        all.push_back(toJson(request));
    }
    return all;
}

} // namespace cadora::service
