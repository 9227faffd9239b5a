#include "hosts/linux/network/CurlError.h"

#include <string_view>
#include <system_error>

namespace cadora {

namespace {

std::string seconds(std::chrono::seconds interval) {
    const auto count = interval.count();
    return std::to_string(count) + (count == 1 ? " second" : " seconds");
}

std::string whileUploading(const TransferContext& context) {
    return context.fileName.empty() ? "" : " while uploading “" + context.fileName + "”";
}

// The operating system's reason, where libcurl has noted one.
std::string systemReason(CURL* handle) {
    long code = 0;
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &code);
    return code == 0 ? "" : ": " + std::generic_category().message(static_cast<int>(code));
}

// A fault in the framing of an answer comes with the code of a lost connection, but without a reason of the
// system's. So does the end of a secure connection that wasn't taken leave of.
bool brokeItsChunks(CURL* handle, const TransferContext& context) {
    return context.chunkedAnswer && context.origin.scheme == "http" && systemReason(handle).empty();
}

// libcurl's own limits for a line. Its older versions report them as if memory had run out, which doesn't
// happen once something has come in; code 100 is what newer ones do.
bool headerLineIsTooLong(CURL* handle, CURLcode code) {
    constexpr int tooLarge = 100;
    curl_off_t received = 0;
    curl_easy_getinfo(handle, CURLINFO_STARTTRANSFER_TIME_T, &received);
    return static_cast<int>(code) == tooLarge || (code == CURLE_OUT_OF_MEMORY && received > 0);
}

std::string secureConnectionReason(CURLcode code, std::string_view details) {
    if (code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CONNECT_ERROR) {
        constexpr std::string_view prefix = "SSL certificate problem: ";
        if (details.substr(0, prefix.size()) == prefix) {
            return "its certificate can’t be trusted (" + std::string(details.substr(prefix.size())) + ")";
        }
        if (!details.empty()) {
            return std::string(details);
        }
    }
    return curl_easy_strerror(code);
}

std::string message(CURL* handle, CURLcode code, const std::string& details, const TransferContext& context) {
    const std::string host = context.origin.authority();
    if (headerLineIsTooLong(handle, code)) {
        return host + " sent an answer with a header line that is too long";
    }
    switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return "Couldn’t find the server " + host + ": its name could not be resolved";
    case CURLE_COULDNT_RESOLVE_PROXY:
        return "Couldn’t connect to " + host + ": the name of the system’s proxy could not be resolved";
    case CURLE_PROXY:
        return "Couldn’t connect to " + host + ": the system’s proxy refused";
    case CURLE_COULDNT_CONNECT: {
        // libcurl names the machine that it couldn't connect to; if that isn't ours, it is a proxy.
        const bool direct = details.find(" " + context.origin.host + " ") != std::string::npos;
        return "Couldn’t connect to " + host + (direct ? "" : " through the system’s proxy") +
               systemReason(handle);
    }
    case CURLE_OPERATION_TIMEDOUT:
        return "Couldn’t connect to " + host + ": timed out, no answer for " +
               seconds(context.timeoutInterval);
    case CURLE_GOT_NOTHING:
        return "The connection to " + host + " was lost" + whileUploading(context) +
               ": it was closed without an answer";
    case CURLE_PARTIAL_FILE:
        return "The connection to " + host + " was lost" + whileUploading(context) +
               ": the answer is incomplete";
    case CURLE_SEND_ERROR:
        return "The connection to " + host + " was lost" + whileUploading(context) + systemReason(handle);
    case CURLE_RECV_ERROR: {
        long proxyStatus = 0;
        curl_easy_getinfo(handle, CURLINFO_HTTP_CONNECTCODE, &proxyStatus);
        if (proxyStatus != 0 && proxyStatus / 100 != 2) {
            return "Couldn’t connect to " + host + ": the system’s proxy refused with HTTP status " +
                   std::to_string(proxyStatus);
        }
        if (!brokeItsChunks(handle, context)) {
            return "The connection to " + host + " was lost" + whileUploading(context) + systemReason(handle);
        }
        [[fallthrough]];
    }
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_BAD_CONTENT_ENCODING:
        return host + " sent an answer that is not valid HTTP";
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
        return "Couldn’t make a secure connection to " + host + ": " + secureConnectionReason(code, details);
    default:
        return "The request to " + host + " failed: " + curl_easy_strerror(code);
    }
}

} // namespace

PlatformError transferError(CURL* handle, CURLcode code, const std::string& details,
                            const TransferContext& context) {
    return {urlSessionErrorDomain, code, message(handle, code, details, context)};
}

PlatformError stalledError(const TransferContext& context) {
    return {urlSessionErrorDomain, CURLE_OPERATION_TIMEDOUT,
            "The connection to " + context.origin.authority() + " timed out" + whileUploading(context) +
                ": no progress for " + seconds(context.timeoutInterval)};
}

PlatformError endlessAnswerError(const TransferContext& context, std::chrono::seconds limit) {
    return {urlSessionErrorDomain, CURLE_OPERATION_TIMEDOUT,
            "The answer of " + context.origin.authority() + " was not complete after " + seconds(limit)};
}

PlatformError earlySuccessError(const TransferContext& context) {
    return {urlSessionErrorDomain, CURLE_SEND_ERROR,
            context.origin.authority() + " answered before “" + context.fileName + "” had been sent whole"};
}

} // namespace cadora
