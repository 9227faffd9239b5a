#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cadora::service {

/// Header names in lower case with their values, in the order in which they are signed.
using SignedHeaders = std::map<std::string, std::string>;

/// Why a presigned request is refused; `accepted` is the only one that lets it through.
enum class SignatureVerdict { accepted, missing, expired, headerMissing, mismatch };

/// Signs the URLs of the object store. The signature is an HMAC-SHA256 over the method, the path, the
/// moment of expiry and the name and value of every signed header, so none of them can be changed.
/// Immutable after construction: any thread may use it.
class UrlSigner {
public:
    explicit UrlSigner(std::string secret);

    /// The query that makes `path` usable with `method` until `expires` (seconds since 1970), without
    /// the leading question mark.
    std::string query(std::string_view method, std::string_view path, std::int64_t expires,
                      const SignedHeaders& headers) const;

    /// The values that a request carries for a header name, empty when it has none.
    using HeaderLookup = std::function<std::vector<std::string>(const std::string& name)>;
    /// The value of a query item, absent when the request's query has none or more than one.
    using QueryLookup = std::function<std::optional<std::string>(const std::string& name)>;

    /// Judges a request as it arrived; `now` is in seconds since 1970.
    SignatureVerdict judge(std::string_view method, std::string_view path, const QueryLookup& query,
                           const HeaderLookup& headers, std::int64_t now) const;

private:
    std::string signature(std::string_view method, std::string_view path, std::int64_t expires,
                          const SignedHeaders& headers) const;

    std::string secret_;
};

/// `length` random bytes from the system, as lower-case hexadecimal digits.
std::string randomHex(std::size_t length);

} // namespace cadora::service
