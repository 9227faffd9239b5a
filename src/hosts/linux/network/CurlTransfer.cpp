#include "hosts/linux/network/CurlTransfer.h"

#include "base/ASCII.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

namespace cadora {

namespace {

constexpr int maximumRedirects = 20;
constexpr long uploadBufferSize = 2L * 1024 * 1024;
// A server that knows nothing of "Expect: 100-continue" costs this wait once per upload; one that does saves
// the whole upload when it refuses.
constexpr long expectContinueMilliseconds = 250;
// How many times per interval progress is looked for, which is how exact a time-out is.
constexpr int looksPerInterval = 10;

// Fields that describe the connection or the framing of the body. They follow from the request itself; a
// second opinion about them would only contradict it.
bool belongsToSession(std::string_view field) {
    constexpr std::array<std::string_view, 7> fields = {
        "Host", "Connection", "Content-Length", "Transfer-Encoding", "Expect", "TE", "Upgrade"};
    return std::any_of(fields.begin(), fields.end(),
                       [&](std::string_view own) { return equalIgnoringCase(own, field); });
}

bool isField(std::string_view headerLine, std::string_view name) {
    return headerLine.size() > name.size() && headerLine[name.size()] == ':' &&
           equalIgnoringCase(headerLine.substr(0, name.size()), name);
}

bool isStatusLine(std::string_view headerLine) {
    return headerLine.substr(0, 5) == "HTTP/";
}

std::string sizeText(std::size_t bytes) {
    constexpr std::size_t mebibyte = std::size_t{1024} * 1024;
    return bytes % mebibyte == 0 ? std::to_string(bytes / mebibyte) + " MiB"
                                 : std::to_string(bytes) + " bytes";
}

} // namespace

CurlTransfer::CurlTransfer(URLRequest request, std::unique_ptr<UploadFile> file,
                           const TransferOptions& options)
    : request_{request.url.text(),
               {},
               std::move(request.httpMethod),
               std::move(request.headers),
               file ? HTTPRequest::Body::file : HTTPRequest::Body::data},
      body_(std::move(request.httpBody)), file_(std::move(file)), options_(options),
      context_{{}, file_ ? file_->name() : "", std::max(request.timeoutInterval, std::chrono::seconds(1))},
      answerDueSince_(Clock::now()) {
    const auto origin = HTTPOrigin::of(request_.url);
    if (!origin) {
        throw PlatformError(urlSessionErrorDomain, CURLE_UNSUPPORTED_PROTOCOL,
                            "Couldn’t send the request: unsupported URL");
    }
    request_.origin = *origin;
    context_.origin = *origin;
    if (!isHTTPToken(request_.method)) {
        throw PlatformError(urlSessionErrorDomain, CURLE_BAD_FUNCTION_ARGUMENT,
                            "Couldn’t send the request to " + context_.origin.authority() +
                                ": unusable HTTP method");
    }
    if (!request_.headers.areSendable()) {
        throw PlatformError(urlSessionErrorDomain, CURLE_BAD_FUNCTION_ARGUMENT,
                            "Couldn’t send the request to " + context_.origin.authority() +
                                ": its header fields hold what HTTP can’t carry");
    }
}

CurlTransfer::~CurlTransfer() {
    takeOff();
}

CurlTransfer& CurlTransfer::from(CURL* easy) {
    CurlTransfer* transfer = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
    return *transfer;
}

void CurlTransfer::takeOff() {
    if (easy_) {
        curl_multi_remove_handle(multi_, easy_.get());
        easy_.reset();
    }
}

template <class Value> void CurlTransfer::set(CURLoption option, Value value) {
    if (const CURLcode code = curl_easy_setopt(easy_.get(), option, value); code != CURLE_OK) {
        throw transferError(easy_.get(), code, "", context_);
    }
}

void CurlTransfer::begin(CURLM* multi, CurlSockets& sockets) {
    takeOff();
    multi_ = multi;
    sockets_ = &sockets;
    easy_.reset(curl_easy_init());
    if (!easy_) {
        throw std::bad_alloc();
    }
    answer_.clear();
    bodySize_ = 0;
    headerSize_ = 0;
    context_.chunkedAnswer = false;
    withinHeader_ = false;
    details_.front() = '\0';

    sockets_->watch(easy_.get());
    set(CURLOPT_PRIVATE, this);
    set(CURLOPT_ERRORBUFFER, details_.data());
    set(CURLOPT_URL, request_.url.c_str());
    // A presigned URL is valid only as it was written.
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    // One request at a time goes to one host: HTTP/2 has nothing to gain there, and large uploads have been
    // slower and less reliable over it.
    set(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    set(CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2);
    set(CURLOPT_USERAGENT, "CadoraHelper");
    set(CURLOPT_NOSIGNAL, 1L);
    // A name server that doesn't answer must not hold up a cancellation or the end of the program.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_CONNECTTIMEOUT_MS,
        static_cast<long>(std::chrono::milliseconds(context_.timeoutInterval).count()));
    set(CURLOPT_HEADERFUNCTION, &receiveHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &receiveBody);
    set(CURLOPT_WRITEDATA, this);
    // A proxy's word that it is connected is no answer to the request.
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (context_.origin.isLoopback()) {
        set(CURLOPT_PROXY, "");
    }
    if (!options_.certificateAuthorityFile.empty()) {
        set(CURLOPT_CAINFO, options_.certificateAuthorityFile.c_str());
    }
    setBody();
    setHeaders();

    lastProgress_ = {};
    lastProgressAt_ = Clock::now();
    lookAgainAfter(lastProgressAt_);
    if (curl_multi_add_handle(multi_, easy_.get()) != CURLM_OK) {
        throw std::bad_alloc();
    }
}

void CurlTransfer::setBody() {
    if (sendsFile()) {
        file_->seek(0);
        set(CURLOPT_UPLOAD, 1L);
        set(CURLOPT_CUSTOMREQUEST, request_.method.c_str());
        set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(file_->size()));
        set(CURLOPT_READFUNCTION, &readBody);
        set(CURLOPT_READDATA, this);
        set(CURLOPT_SEEKFUNCTION, &seekBody);
        set(CURLOPT_SEEKDATA, this);
        set(CURLOPT_UPLOAD_BUFFERSIZE, uploadBufferSize);
        set(CURLOPT_EXPECT_100_TIMEOUT_MS, expectContinueMilliseconds);
    } else if (request_.method == "HEAD") {
        set(CURLOPT_NOBODY, 1L);
    } else if (request_.body == HTTPRequest::Body::data && request_.method != "GET") {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.size()));
        set(CURLOPT_POSTFIELDS, body_.data());
        set(CURLOPT_CUSTOMREQUEST, request_.method.c_str());
    }
}

void CurlTransfer::setHeaders() {
    headers_.reset();
    // Appending to the last element saves libcurl the way there.
    curl_slist* last = nullptr;
    const auto append = [this, &last](const std::string& line) {
        curl_slist* const appended = curl_slist_append(last, line.c_str());
        if (appended == nullptr) {
            throw std::bad_alloc();
        }
        if (last == nullptr) {
            headers_.reset(appended);
            last = appended;
        } else {
            last = last->next;
        }
    };
    for (const auto& [name, value] : request_.headers) {
        if (!belongsToSession(name)) {
            std::string line = name;
            line += value.empty() ? ";" : ": ";
            line += value;
            append(line);
        }
    }
    if (!request_.headers.value("Content-Type")) {
        // libcurl would guess one.
        append("Content-Type:");
    }
    set(CURLOPT_HTTPHEADER, headers_.get());
}

std::optional<Result<URLSession::Answer>> CurlTransfer::finish(CURLcode code) {
    if (stopped_) {
        return failure<URLSession::Answer>(*stopped_);
    }
    if (isNotHTTP(code)) {
        return URLSession::Answer{"", URLResponse{std::nullopt}};
    }
    if (code != CURLE_OK) {
        return failure<URLSession::Answer>(transferError(easy_.get(), code, details_.data(), context_));
    }
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    const char* location = nullptr;
    curl_easy_getinfo(easy_.get(), CURLINFO_REDIRECT_URL, &location);
    if (!isFollowed(request_, status) || location == nullptr) {
        return URLSession::Answer{std::move(answer_), URLResponse{status}};
    }
    if (redirects_ == maximumRedirects) {
        return failure<URLSession::Answer>(PlatformError(urlSessionErrorDomain, CURLE_TOO_MANY_REDIRECTS,
                                                         "The request to " + context_.origin.authority() +
                                                             " failed: too many HTTP redirects"));
    }
    ++redirects_;
    try {
        request_ = redirected(request_, status, location);
        context_.origin = request_.origin;
        begin(multi_, *sockets_);
    } catch (...) {
        return std::current_exception();
    }
    return std::nullopt;
}

// What came doesn't begin as HTTP does. Once a line did, the code is that of a fault within an answer.
bool CurlTransfer::isNotHTTP(CURLcode code) const {
    return (code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_WEIRD_SERVER_REPLY) && !withinHeader_;
}

void CurlTransfer::lookAgainAfter(Clock::time_point now) {
    const Clock::duration interval = context_.timeoutInterval;
    nextLook_ = now + interval / looksPerInterval;
    for (const auto due : {lastProgressAt_ + interval, answerDueSince_ + options_.maximumAnswerTime}) {
        if (due > now) {
            nextLook_ = std::min(nextLook_, due);
        }
    }
}

std::optional<PlatformError> CurlTransfer::overdue(Clock::time_point now) {
    if (now < nextLook_) {
        return std::nullopt;
    }
    if (const Progress seen = progress(); seen != lastProgress_) {
        if (sendsFile() && seen.hasSentMoreThan(lastProgress_)) {
            answerDueSince_ = now;
        }
        lastProgress_ = seen;
        lastProgressAt_ = now;
    }
    if (now >= answerDueSince_ + options_.maximumAnswerTime) {
        return endlessAnswerError(context_, options_.maximumAnswerTime);
    }
    if (lastProgress_.connected && now >= lastProgressAt_ + context_.timeoutInterval) {
        return stalledError(context_);
    }
    lookAgainAfter(now);
    return std::nullopt;
}

CurlTransfer::Progress CurlTransfer::progress() const {
    Progress result;
    curl_off_t connectedAfter = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_PRETRANSFER_TIME_T, &connectedAfter);
    result.connected = connectedAfter > 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_SIZE_UPLOAD_T, &result.bytesSent);
    result.bytesReceived = headerSize_ + bodySize_;
    // The kernel takes megabytes at once and may need longer than the interval to get them through a slow
    // line: what the peer has acknowledged tells.
    result.bytesAcknowledged = sockets_->bytesAcknowledged(easy_.get());
    return result;
}

std::size_t CurlTransfer::readBody(char* buffer, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<CurlTransfer*>(transfer);
    try {
        return self.file_->read(buffer, size * count);
    } catch (const PlatformError& error) {
        self.stopped_ = error;
        return CURL_READFUNC_ABORT;
    }
}

int CurlTransfer::seekBody(void* transfer, curl_off_t offset, int origin) {
    if (origin != SEEK_SET) {
        return CURL_SEEKFUNC_CANTSEEK;
    }
    static_cast<CurlTransfer*>(transfer)->file_->seek(offset);
    return CURL_SEEKFUNC_OK;
}

bool CurlTransfer::accept(std::size_t total) {
    if (total <= options_.maximumAnswerSize) {
        return true;
    }
    stopped_.emplace(urlSessionErrorDomain, CURLE_FILESIZE_EXCEEDED,
                     "The answer of " + context_.origin.authority() + " is larger than " +
                         sizeText(options_.maximumAnswerSize));
    return false;
}

std::size_t CurlTransfer::receiveHeader(char* line, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<CurlTransfer*>(transfer);
    const std::size_t length = size * count;
    const std::string_view text(line, length);
    self.withinHeader_ = line[0] != '\r' && line[0] != '\n';
    self.headerSize_ += length;
    if (!self.accept(self.headerSize_)) {
        return CURL_WRITEFUNC_ERROR;
    }
    if (isField(text, "Transfer-Encoding")) {
        self.context_.chunkedAnswer = true;
    }
    if (isStatusLine(text) && self.claimsEarlySuccess()) {
        self.stopped_ = earlySuccessError(self.context_);
        return CURL_WRITEFUNC_ERROR;
    }
    return length;
}

bool CurlTransfer::claimsEarlySuccess() const {
    long status = 0;
    curl_off_t sent = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy_.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
    return sendsFile() && status / 100 == 2 && sent < file_->size();
}

std::size_t CurlTransfer::receiveBody(char* bytes, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<CurlTransfer*>(transfer);
    const std::size_t length = size * count;
    self.bodySize_ += length;
    // Nobody needs what answers an upload; its end alone counts.
    const std::size_t kept =
        self.sendsFile() ? std::min(length, self.options_.maximumAnswerSize - self.answer_.size()) : length;
    if (!self.accept(self.answer_.size() + kept)) {
        return CURL_WRITEFUNC_ERROR;
    }
    try {
        self.answer_.append(bytes, kept);
    } catch (const std::bad_alloc&) {
        return CURL_WRITEFUNC_ERROR;
    }
    return length;
}

} // namespace cadora
