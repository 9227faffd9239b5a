#include "api/R2Uploader.h"

#include "api/UploadError.h"
#include "base/ASCII.h"
#include "base/Deployment.h"
#include "base/Json.h"
#include "platform/Platform.h"

#include <exception>

namespace cadora {

namespace {

constexpr int lastAttempt = 2;
constexpr std::int64_t notHTTP = -1;

std::string contentType(const std::string& fileKey) {
    if (fileKey == "audio") {
        return "audio/mp4";
    }
    if (fileKey == "waveform" || fileKey == "waveform_smooth") {
        return "image/webp";
    }
    return "image/jpeg";
}

// The length and the host are the session's own business, whatever was signed.
bool isSetBySession(const std::string& header) {
    const std::string name = lowercased(header);
    return name == "host" || name == "content-length";
}

// Where the service itself is asked over TLS, neither the recording nor the right to store it goes without.
bool isUsable(const URL& url) {
    return url.isHTTPAddress() &&
           (url.scheme() == "https" || URL::constant(deployment::apiOrigin()).scheme() == "http");
}

URLRequest putRequest(const URL& url, const std::string& fileKey, const PresignResponse& presign) {
    URLRequest request{url};
    request.httpMethod = "PUT";
    request.timeoutInterval = std::chrono::seconds(60);
    request.headers.setValue(contentType(fileKey), "Content-Type");
    if (!presign.headers || !presign.headers->contains(fileKey)) {
        return request;
    }
    for (const auto& [name, values] : presign.headers->at(fileKey)) {
        if (!isSetBySession(name) && !values.empty()) {
            request.headers.setValue(values.front(), name);
        }
    }
    if (!request.headers.areSendable()) {
        throw json::DecodingError("“headers." + fileKey + "” holds what HTTP can’t carry");
    }
    return request;
}

bool isRetryable(std::int64_t status) {
    return status == 408 || status == 429 || (status >= 500 && status <= 599);
}

} // namespace

Task<void> R2Uploader::put(std::string fileKey, std::filesystem::path fileURL, PresignResponse presign) {
    const Platform& platform = Platform::current();
    const auto entry = presign.urls.find(fileKey);
    const auto url = entry == presign.urls.end() ? std::nullopt : URL::parse(entry->second);
    if (!url || !isUsable(*url)) {
        throw UploadError::missingURL(fileKey);
    }
    for (int attempt = 0;; ++attempt) {
        const URLRequest request = putRequest(*url, fileKey, presign);
        OperationAwaiter<URLSession::Answer> sending(
            platform.mainActor, [&](Completion<URLSession::Answer> completion) {
                return platform.urlSession.upload(request, fileURL, std::move(completion));
            });
        try {
            const URLSession::Answer answer = co_await sending;
            const std::int64_t status = answer.response.statusCode.value_or(notHTTP);
            if (status >= 200 && status <= 299) {
                co_return;
            }
            if (attempt == lastAttempt || !isRetryable(status)) {
                throw UploadError::http(status);
            }
        } catch (const UploadError&) {
            throw;
        } catch (...) {
            if (attempt == lastAttempt) {
                throw;
            }
        }
        OperationAwaiter<std::monostate> wait(platform.mainActor, [&](Completion<std::monostate> completion) {
            return platform.clock.sleep(std::chrono::seconds(2 << attempt), std::move(completion));
        });
        co_await wait;
    }
}

} // namespace cadora
