#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace cadora::service {

/// What becomes of a connection at the point where a fault interrupts it.
enum class Interruption { close, reset, stall };

/// From where the bytes of an answer are counted.
enum class CountedFrom { statusLine, body };

/// The point of a transfer at which it is interrupted.
struct CutPoint {
    std::uint64_t bytes = 0;
    Interruption interruption = Interruption::close;
};

/// A transfer that pauses after every so many bytes of the request's body and of the answer.
struct Pace {
    std::uint64_t bytes = 0;
    std::chrono::milliseconds pause{0};
};

/// An answer that is sent in place of the service's own.
struct CannedAnswer {
    int status = 200;
    std::string body;
    std::string contentType;
    std::map<std::string, std::string> headers;
};

/// Whether a canned answer waits for the request's body or is sent at once, which ends the connection.
enum class BodyFirst { yes, no };

/// What goes wrong with one request. The default goes wrong nowhere.
struct Fault {
    std::int64_t id = 0;
    std::chrono::milliseconds delay{0};
    bool stallBeforeHandling = false;
    std::chrono::milliseconds stallLimit{120000};
    std::optional<CannedAnswer> answer;
    BodyFirst bodyFirst = BodyFirst::yes;
    std::optional<std::string> rawAnswer; ///< sent as it stands, then the connection is closed
    std::optional<CutPoint> requestCut;   ///< counted in bytes of the request's body
    std::optional<CutPoint> answerCut;
    CountedFrom answerCountedFrom = CountedFrom::statusLine;
    std::optional<Pace> pace;
};

/// The faults that tests have asked for. Each rule counts the requests that match it, from 1, and says
/// which of them it spoils; the first rule that spoils a request decides. Any thread may use it.
class FaultScript {
public:
    /// Adds one rule (an object) or several (an array of objects) and gives their numbers. Throws
    /// std::invalid_argument, naming the field, for anything that it does not understand; then no rule of
    /// the call is added.
    std::vector<std::int64_t> add(const nlohmann::json& rules);

    /// Drops all rules.
    void clear();

    /// Counts the request with every rule that it matches and gives what goes wrong with it.
    std::optional<Fault> next(std::string_view method, std::string_view path);

    /// Every rule as it was added, with its "id" and with "matched", the number of requests that it has
    /// counted.
    nlohmann::json list() const;

private:
    struct Rule {
        nlohmann::json source;
        std::string method;
        std::string path;
        std::vector<std::int64_t> calls;
        Fault fault;
        std::int64_t matched = 0;
    };

    static Rule parse(const nlohmann::json& source);

    mutable std::mutex mutex_;
    std::vector<Rule> rules_;
    std::int64_t nextId_ = 1;
};

} // namespace cadora::service
