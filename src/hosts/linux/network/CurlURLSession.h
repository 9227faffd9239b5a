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

struct CurlURLSessionConfiguration {
    // In bytes, for an answer's header and for its body; a larger answer is a failure.
    std::size_t maximumAnswerSize = std::size_t{4} * 1024 * 1024;

    // The certificate authorities to trust, as a PEM file; empty for those that the system trusts.
    std::filesystem::path certificateAuthorityFile;

    // How long connections are kept for the next request. Afterwards the session holds neither thread nor
    // connection until it is used again.
    std::chrono::milliseconds idleLifetime = std::chrono::seconds(20);
};

// The URL session on libcurl. HTTP/1.1 over http and https; the proxies of the usual environment variables,
// except for the machine itself; no cookies, no cache, no stored transport security, no .netrc.
//
// Redirects are followed at most 20 times, and never from https to http. 301, 302 and 303 turn a request into
// a GET, 307 and 308 repeat it. Authorization, Cookie and X-Cadora-* fields never go to another origin.
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

    CancelAction begin(const std::function<std::unique_ptr<CurlTransfer>()>& makeTransfer,
                       Completion<Answer> completion);

    const Configuration configuration_;
    std::shared_ptr<Pending> pending_;
};

} // namespace cadora
