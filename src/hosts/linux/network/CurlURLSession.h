#pragma once

#include "base/MainActor.h"
#include "platform/URLSession.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

namespace cadora {

class CurlNetwork;
class CurlTransfer;
struct TransferOptions;

struct CurlURLSessionConfiguration {
    // In bytes, for an answer's header and for its body; a larger answer is a failure. What answers an upload
    // is read to its end, but kept only so far.
    std::size_t maximumAnswerSize = std::size_t{4} * 1024 * 1024;

    // The certificate authorities to trust, as a PEM file; empty for those that the system trusts.
    std::filesystem::path certificateAuthorityFile;

    // How long connections are kept for the next request. Afterwards the session holds neither thread nor
    // connection until it is used again.
    std::chrono::milliseconds idleLifetime = std::chrono::seconds(20);

    // How long an answer may take in all, from the beginning of a request, or from where the last byte of an
    // upload has arrived. Far beyond what an answer of this service takes on the slowest line.
    std::chrono::seconds maximumAnswerTime = std::chrono::minutes(5);
};

// The URL session on libcurl. HTTP/1.1 over http and https; the proxies of the usual environment variables,
// except for the machine itself; no cookies, no cache, no stored transport security, no .netrc.
//
// Redirects are followed at most 20 times, and never from https to http. They repeat the request; 303, and
// 301 and 302 after a POST of data, turn it into a GET instead, and the 303 of an upload is its answer.
// Authorization, Cookie and X-Cadora-* fields never go to another origin.
//
// A 2xx before all of an upload was handed over is a failure: nothing whole can have been stored.
//
// A connection that was kept and that the server closes before it answers is replaced, and the request sent
// again there: the server gave it up while it was idle.
//
// Bytes that don't begin as an HTTP answer are an answer without status and without data.
//
// Failures are PlatformErrors of the domain "URLSession" with libcurl's codes, or of the domain "POSIX" where
// the file to upload is the reason. A file whose size changes while it is being uploaded is a failure too.
//
// Destroying the session abandons the requests under way; their completions are never called.
class CurlURLSession : public URLSession {
public:
    using Configuration = CurlURLSessionConfiguration;

    explicit CurlURLSession(MainActor& actor, Configuration configuration = {});
    CurlURLSession(const CurlURLSession&) = delete;
    CurlURLSession& operator=(const CurlURLSession&) = delete;
    ~CurlURLSession() override;

    CancelAction data(URLRequest request, Completion<Answer> completion) override;
    CancelAction upload(URLRequest request, std::filesystem::path fromFile,
                        Completion<Answer> completion) override;

private:
    struct Pending;

    TransferOptions options() const;
    CancelAction begin(const std::function<std::unique_ptr<CurlTransfer>()>& makeTransfer,
                       Completion<Answer> completion);

    const Configuration configuration_;
    std::shared_ptr<Pending> pending_;
};

} // namespace cadora
