#pragma once

#include "base/Error.h"
#include "hosts/linux/network/HTTPOrigin.h"

#include <chrono>
#include <curl/curl.h>
#include <string>

namespace cadora {

// The domain of a transport failure; its code is libcurl's.
inline constexpr const char* urlSessionErrorDomain = "URLSession";

// What the text of a transport failure is made of. None of it is a secret.
struct TransferContext {
    // Where the request went.
    HTTPOrigin origin;
    // The name of the file that was being sent; empty when there was none.
    std::string fileName;
    std::chrono::seconds timeoutInterval;
    // Whether the answer under way says that it comes in chunks.
    bool chunkedAnswer = false;
};

// Puts a failure that libcurl reports into plain words. `details` is libcurl's own sentence about it; only
// the parts of it that are known to hold no URL, header or body are shown.
PlatformError transferError(CURL* handle, CURLcode code, const std::string& details,
                            const TransferContext& context);

// The peer was reached but nothing moved for the whole interval.
PlatformError stalledError(const TransferContext& context);

// The answer kept coming, but not to its end.
PlatformError endlessAnswerError(const TransferContext& context, std::chrono::seconds limit);

// A success before there was anything whole to succeed with.
PlatformError earlySuccessError(const TransferContext& context);

} // namespace cadora
