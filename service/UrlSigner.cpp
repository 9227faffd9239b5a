#include "service/UrlSigner.h"

#include <charconv>
#include <stdexcept>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

namespace cadora::service {

namespace {

std::string hex(const unsigned char* bytes, std::size_t count) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(count * 2);
    for (std::size_t index = 0; index < count; ++index) {
        text += digits[bytes[index] >> 4];
        text += digits[bytes[index] & 0x0f];
    }
    return text;
}

std::vector<std::string> splitNames(const std::string& list) {
    std::vector<std::string> names;
    std::size_t start = 0;
    while (start <= list.size()) {
        const std::size_t end = std::min(list.find('.', start), list.size());
        names.push_back(list.substr(start, end - start));
        start = end + 1;
    }
    return names;
}

} // namespace

UrlSigner::UrlSigner(std::string secret) : secret_(std::move(secret)) {}

std::string UrlSigner::signature(std::string_view method, std::string_view path, std::int64_t expires,
                                 const SignedHeaders& headers) const {
    // No part can hold a line feed (a header value never does), so two requests never share a text.
    std::string text;
    text.append(method).append("\n").append(path).append("\n").append(std::to_string(expires)).append("\n");
    for (const auto& [name, value] : headers) {
        text.append(name).append(":").append(value).append("\n");
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (HMAC(EVP_sha256(), secret_.data(), static_cast<int>(secret_.size()),
             reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest, &length) == nullptr) {
        throw std::runtime_error("HMAC-SHA256 is not available");
    }
    return hex(digest, length);
}

std::string UrlSigner::query(std::string_view method, std::string_view path, std::int64_t expires,
                             const SignedHeaders& headers) const {
    std::string names;
    for (const auto& entry : headers) {
        names += (names.empty() ? "" : ".") + entry.first;
    }
    return "expires=" + std::to_string(expires) + "&headers=" + names +
           "&signature=" + signature(method, path, expires, headers);
}

SignatureVerdict UrlSigner::judge(std::string_view method, std::string_view path, const QueryLookup& query,
                                  const HeaderLookup& headers, std::int64_t now) const {
    const std::optional<std::string> expiresText = query("expires");
    const std::optional<std::string> names = query("headers");
    const std::optional<std::string> given = query("signature");
    if (!expiresText || !names || !given) {
        return SignatureVerdict::missing;
    }
    std::int64_t expires = 0;
    const char* end = expiresText->data() + expiresText->size();
    const auto [stop, problem] = std::from_chars(expiresText->data(), end, expires);
    if (problem != std::errc() || stop != end) {
        return SignatureVerdict::mismatch;
    }
    SignedHeaders received;
    if (!names->empty()) {
        for (const std::string& name : splitNames(*names)) {
            const std::vector<std::string> values = headers(name);
            if (values.size() != 1) {
                return SignatureVerdict::headerMissing;
            }
            received[name] = values.front();
        }
    }
    const std::string wanted = signature(method, path, expires, received);
    if (given->size() != wanted.size() || CRYPTO_memcmp(given->data(), wanted.data(), wanted.size()) != 0) {
        return SignatureVerdict::mismatch;
    }
    return now < expires ? SignatureVerdict::accepted : SignatureVerdict::expired;
}

std::string randomHex(std::size_t length) {
    std::vector<unsigned char> bytes(length);
    if (RAND_bytes(bytes.data(), static_cast<int>(length)) != 1) {
        throw std::runtime_error("the system gave no random bytes");
    }
    return hex(bytes.data(), bytes.size());
}

} // namespace cadora::service
