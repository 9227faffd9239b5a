#pragma once

#include "hosts/linux/network/CurlError.h"
#include "hosts/linux/network/CurlSockets.h"
#include "hosts/linux/network/HTTPRedirect.h"
#include "hosts/linux/network/UploadFile.h"
#include "platform/URLSession.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <curl/curl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace cadora {

// What the session's configuration says about each transfer.
struct TransferOptions {
    // In bytes, for an answer's header and for its body.
    std::size_t maximumAnswerSize;
    // From a request's beginning, or from an upload's last byte, to the end of its answer.
    std::chrono::seconds maximumAnswerTime;
    // Empty: those that the system trusts.
    std::filesystem::path certificateAuthorityFile;
};

// One request and its answer, followed through its redirects. Made on any thread, then used by the network
// thread alone.
class CurlTransfer {
public:
    using Clock = std::chrono::steady_clock;

    // With a null file, the request's own body is sent. Throws PlatformError for a request that can't be sent
    // over HTTP at all.
    CurlTransfer(URLRequest request, std::unique_ptr<UploadFile> file, const TransferOptions& options);
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;
    ~CurlTransfer();

    // Hands the request to libcurl. Throws PlatformError. Both outlive the transfer.
    void begin(CURLM* multi, CurlSockets& sockets);

    // libcurl is done with the request. Absent when a redirect leads on, which begins at once.
    std::optional<Result<URLSession::Answer>> finish(CURLcode code);

    // When overdue() wants to be asked again.
    Clock::time_point nextLook() const { return nextLook_; }

    // The failure of a transfer in which nothing has moved in either direction for the whole interval, or
    // whose answer doesn't come to an end. Connecting isn't judged by the first: libcurl limits it to the
    // same interval.
    std::optional<PlatformError> overdue(Clock::time_point now);

    static CurlTransfer& from(CURL* easy);

private:
    struct FreeEasy {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };
    struct FreeList {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    // Everything that shows that the peer, or the way to it, is alive.
    struct Progress {
        bool connected = false;
        curl_off_t bytesSent = 0;
        std::size_t bytesReceived = 0;
        std::uint64_t bytesAcknowledged = 0;

        bool hasSentMoreThan(const Progress& earlier) const {
            return bytesSent != earlier.bytesSent || bytesAcknowledged != earlier.bytesAcknowledged;
        }
        friend bool operator==(const Progress&, const Progress&) = default;
    };

    static std::size_t readBody(char* buffer, std::size_t size, std::size_t count, void* transfer);
    static int seekBody(void* transfer, curl_off_t offset, int origin);
    static std::size_t receiveHeader(char* bytes, std::size_t size, std::size_t count, void* transfer);
    static std::size_t receiveBody(char* bytes, std::size_t size, std::size_t count, void* transfer);

    template <class Value> void set(CURLoption option, Value value);
    void setHeaders();
    void setBody();
    void takeOff();
    Progress progress() const;
    void lookAgainAfter(Clock::time_point now);
    bool sendsFile() const { return request_.body == HTTPRequest::Body::file; }
    bool claimsEarlySuccess() const;
    bool isNotHTTP(CURLcode code) const;
    bool accept(std::size_t total);

    HTTPRequest request_;
    std::string body_;
    std::unique_ptr<UploadFile> file_;
    TransferOptions options_;
    TransferContext context_;

    CURLM* multi_ = nullptr;
    CurlSockets* sockets_ = nullptr;
    std::unique_ptr<curl_slist, FreeList> headers_;
    std::unique_ptr<CURL, FreeEasy> easy_;
    std::array<char, CURL_ERROR_SIZE> details_{};

    int redirects_ = 0;
    std::string answer_;
    // What has come of the body, also where it isn't kept.
    std::size_t bodySize_ = 0;
    // Of interim answers too.
    std::size_t headerSize_ = 0;
    // The last line received was not the empty one.
    bool withinHeader_ = false;
    // Why a callback stopped libcurl.
    std::optional<PlatformError> stopped_;

    Progress lastProgress_;
    Clock::time_point lastProgressAt_;
    // From when on only the answer is waited for.
    Clock::time_point answerDueSince_;
    Clock::time_point nextLook_;
};

} // namespace cadora
