#pragma once

#include "base/Completion.h"
#include "base/URL.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace cadora {

// Header fields in the order in which they were first set. Names are compared without regard to case.
class HTTPHeaderFields {
public:
    // Replaces any value of that name, and takes the new spelling of the name.
    void setValue(std::string value, std::string field);

    std::optional<std::string> value(std::string_view field) const;

    auto begin() const { return fields_.begin(); }
    auto end() const { return fields_.end(); }
    std::size_t size() const { return fields_.size(); }

    // Whether HTTP can carry them: names are tokens, values hold no character that ends a line, and together
    // they are no longer than 512 KiB, which is far more than any server reads.
    bool areSendable() const;

    // In the same order and spelling.
    friend bool operator==(const HTTPHeaderFields&, const HTTPHeaderFields&) = default;

private:
    std::vector<std::pair<std::string, std::string>> fields_;
    // Where each stands, by its name in lower case.
    std::unordered_map<std::string, std::size_t> positions_;
};

// What HTTP takes for a method or for the name of a field.
bool isHTTPToken(std::string_view text);

struct URLRequest {
    URL url;
    std::string httpMethod = "GET";
    // Without progress, not in all: a large upload may take as long as it keeps moving.
    std::chrono::seconds timeoutInterval{60};
    HTTPHeaderFields headers{};
    std::string httpBody{};

    friend bool operator==(const URLRequest&, const URLRequest&) = default;
};

struct URLResponse {
    // Absent when the answer is not HTTP.
    std::optional<std::int64_t> statusCode;
};

// An HTTP client with the platform's defaults: redirects followed, system proxies, no disk cache of answers
// to these requests. A transport failure completes with PlatformError, whose text names what failed and why
// and never holds a header, a body or a URL's path and query. Main actor only.
class URLSession {
public:
    struct Answer {
        std::string data;
        URLResponse response;
    };

    virtual ~URLSession() = default;

    // Sends the request with its body and collects the answer.
    virtual CancelAction data(URLRequest request, Completion<Answer> completion) = 0;

    // Streams the file as the request's body, its length known beforehand. The file is opened within this
    // call and kept, whatever is renamed or deleted meanwhile.
    virtual CancelAction upload(URLRequest request, std::filesystem::path fromFile,
                                Completion<Answer> completion) = 0;
};

} // namespace cadora
