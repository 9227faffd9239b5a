#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace cadora::test {

using HttpHeaders = std::multimap<std::string, std::string>;

struct HttpAnswer {
    int status = 0;
    std::string body;
    HttpHeaders headers; ///< names in lower case

    /// The first value of a field, empty when there is none. The name is in lower case.
    std::string header(const std::string& name) const;
};

/// What came of a request: an answer, or why there is none.
struct HttpResult {
    enum class Failure { none, untrusted, tooManyRedirects, other };

    std::optional<HttpAnswer> answer;
    Failure failure = Failure::none;
    std::string problem; ///< for people; empty beside an answer

    explicit operator bool() const { return answer.has_value(); }
    const HttpAnswer& operator*() const { return answer.value(); }
    const HttpAnswer* operator->() const { return &answer.value(); }
};

/// An HTTP client for one origin, which keeps its connection. It sends nothing that it isn't told to send,
/// and takes a target as it stands. Its waits are bounded. Used by one thread.
class HttpClient {
public:
    enum class Redirects { given, followed };

    /// `certificate`, a PEM file, is trusted for HTTPS; empty trusts what the system trusts.
    explicit HttpClient(std::string origin, std::filesystem::path certificate = {},
                        Redirects redirects = Redirects::given);
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    HttpResult get(const std::string& target, const HttpHeaders& headers = {});
    HttpResult head(const std::string& target);
    HttpResult remove(const std::string& target);
    HttpResult post(const std::string& target, HttpHeaders headers, std::string_view body,
                    const std::string& contentType);
    HttpResult put(const std::string& target, HttpHeaders headers, std::string_view body,
                   const std::string& contentType);
    HttpResult send(const std::string& method, const std::string& target, const HttpHeaders& headers,
                    std::optional<std::string_view> body = std::nullopt);

private:
    struct Transfer;

    std::string origin_;
    std::filesystem::path certificate_;
    Redirects redirects_;
    std::unique_ptr<Transfer> transfer_;
};

} // namespace cadora::test
