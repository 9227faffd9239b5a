#pragma once

#include "fakes/TemporaryDirectory.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <sys/types.h>

namespace cadora::test {

/// A request as the stand-in logged it.
struct ServiceRequest {
    std::int64_t id = 0;
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
    std::int64_t connection = 0;     ///< equal for requests that shared a connection
    std::uint64_t receivedBytes = 0; ///< of the body
    std::optional<int> status;       ///< absent while unanswered
    double durationMs = 0;
    bool ended = false;

    bool hasHeader(const std::string& lowerCaseName) const;
};

/// Whether the stand-in speaks HTTP, or HTTPS under a certificate of its own for 127.0.0.1.
enum class ServiceTransport { http, https };

/// The stand-in of the service, run as a child process on a free port for as long as this object lives. Its
/// data folder is temporary unless one is given. Create and use it on one thread, which must outlive it.
/// Every call that talks to the stand-in is bounded, and throws std::runtime_error when it doesn't get its
/// answer.
class ServiceProcess {
public:
    struct Options {
        ServiceTransport transport = ServiceTransport::http;
        std::filesystem::path data; ///< empty: a temporary folder, removed at the end
        std::vector<std::string> arguments;
    };

    ServiceProcess() : ServiceProcess(Options{}) {}
    explicit ServiceProcess(Options options);
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    /// What the stand-in takes as credentials unless `arguments` say otherwise.
    static constexpr const char* token = "local-token";
    static constexpr const char* userId = "1001";
    static constexpr const char* email = "musician@example.com";

    /// Scheme, host and port, without a path.
    const std::string& origin() const { return origin_; }
    std::uint16_t port() const;
    /// The certificate to trust for HTTPS, a PEM file; empty for HTTP.
    const std::filesystem::path& certificate() const { return certificate_; }
    const std::filesystem::path& data() const { return data_; }
    /// What the stand-in has written to its log file.
    std::string logText() const;

    /// Adds a fault, or several as an array; see service/README.md for their fields.
    void addFault(const nlohmann::json& fault);
    /// Drops the faults and lets go on what they hold up.
    void clearFaults();
    /// Lets go on what faults hold up now, and keeps the faults.
    void releaseStalls();

    /// The requests so far in order of arrival, those for tests themselves not counted.
    std::vector<ServiceRequest> requests() const;
    /// Only those with this method whose path begins so.
    std::vector<ServiceRequest> requests(const std::string& method, const std::string& pathPrefix) const;
    /// Waits until there are `count` such requests, answered or not, and gives them.
    std::vector<ServiceRequest>
    awaitRequests(std::size_t count, const std::string& method, const std::string& pathPrefix,
                  std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
    /// Waits until all requests so far have ended, and gives them.
    std::vector<ServiceRequest> awaitEnded(std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

    /// The posts, newest first, as GET /api/posts lists them.
    std::vector<nlohmann::json> posts() const;

    pid_t pid() const { return pid_; }
    /// Ends the stand-in and gives its exit status, or -1 if it had to be killed. Called by the destructor.
    int terminate();

private:
    void start(const std::vector<std::string>& arguments);
    nlohmann::json call(const std::string& method, const std::string& path,
                        const std::optional<nlohmann::json>& body = std::nullopt) const;

    TemporaryDirectory temporary_;
    std::filesystem::path data_;
    std::filesystem::path certificate_;
    std::filesystem::path log_;
    std::string origin_;
    pid_t pid_ = -1;
};

} // namespace cadora::test
