#include "service/HttpClient.h"

#include <algorithm>
#include <new>
#include <utility>

#include <curl/curl.h>

namespace cadora::test {

namespace {

constexpr long connectLimitSeconds = 20;
constexpr long requestLimitSeconds = 120;

std::size_t takeBody(char* bytes, std::size_t, std::size_t count, void* answer) {
    static_cast<HttpAnswer*>(answer)->body.append(bytes, count);
    return count;
}

std::size_t takeHeader(char* bytes, std::size_t, std::size_t count, void* answer) {
    HttpHeaders& headers = static_cast<HttpAnswer*>(answer)->headers;
    const std::string_view line(bytes, count);
    if (line.starts_with("HTTP/")) {
        headers.clear();
    } else if (const std::size_t colon = line.find(':'); colon != std::string_view::npos) {
        std::string name(line.substr(0, colon));
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
        std::string_view value = line.substr(colon + 1);
        value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
        value = value.substr(0, value.find_last_not_of("\r\n") + 1);
        headers.emplace(std::move(name), value);
    }
    return count;
}

struct HeaderList {
    HeaderList() = default;
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;
    ~HeaderList() { curl_slist_free_all(list); }

    void add(const std::string& line) { list = curl_slist_append(list, line.c_str()); }

    curl_slist* list = nullptr;
};

HttpResult::Failure failureOf(CURLcode code) {
    switch (code) {
    case CURLE_PEER_FAILED_VERIFICATION:
        return HttpResult::Failure::untrusted;
    case CURLE_TOO_MANY_REDIRECTS:
        return HttpResult::Failure::tooManyRedirects;
    default:
        return HttpResult::Failure::other;
    }
}

} // namespace

struct HttpClient::Transfer {
    Transfer() : handle(curl_easy_init()) {
        if (handle == nullptr) {
            throw std::bad_alloc();
        }
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer() { curl_easy_cleanup(handle); }

    CURL* handle;
};

std::string HttpAnswer::header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

HttpClient::HttpClient(std::string origin, std::filesystem::path certificate, Redirects redirects)
    : origin_(std::move(origin)), certificate_(std::move(certificate)), redirects_(redirects),
      transfer_(std::make_unique<Transfer>()) {}

HttpClient::~HttpClient() = default;

HttpResult HttpClient::send(const std::string& method, const std::string& target, const HttpHeaders& headers,
                            std::optional<std::string_view> body) {
    CURL* const handle = transfer_->handle;
    curl_easy_reset(handle);
    HeaderList lines;
    // What the library would send by itself.
    for (const char* unwanted : {"Expect:", "Accept:", "Content-Type:"}) {
        lines.add(unwanted);
    }
    for (const auto& [name, value] : headers) {
        std::string line = name;
        line.append(value.empty() ? ";" : ": ").append(value);
        lines.add(line);
    }
    HttpAnswer answer;
    curl_easy_setopt(handle, CURLOPT_URL, (origin_ + target).c_str());
    curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, connectLimitSeconds);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT, requestLimitSeconds);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, lines.list);
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, redirects_ == Redirects::followed ? 1L : 0L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 20L);
    if (!certificate_.empty()) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, certificate_.c_str());
    }
    if (method == "HEAD") {
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
    } else if (body) {
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body->data());
    }
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, takeBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &answer);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, takeHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &answer);

    HttpResult result;
    if (const CURLcode code = curl_easy_perform(handle); code != CURLE_OK) {
        result.failure = failureOf(code);
        result.problem = curl_easy_strerror(code);
        return result;
    }
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    answer.status = static_cast<int>(status);
    result.answer = std::move(answer);
    return result;
}

HttpResult HttpClient::get(const std::string& target, const HttpHeaders& headers) {
    return send("GET", target, headers);
}

HttpResult HttpClient::head(const std::string& target) {
    return send("HEAD", target, {});
}

HttpResult HttpClient::remove(const std::string& target) {
    return send("DELETE", target, {});
}

HttpResult HttpClient::post(const std::string& target, HttpHeaders headers, std::string_view body,
                            const std::string& contentType) {
    headers.emplace("Content-Type", contentType);
    return send("POST", target, headers, body);
}

HttpResult HttpClient::put(const std::string& target, HttpHeaders headers, std::string_view body,
                           const std::string& contentType) {
    headers.emplace("Content-Type", contentType);
    return send("PUT", target, headers, body);
}

} // namespace cadora::test
