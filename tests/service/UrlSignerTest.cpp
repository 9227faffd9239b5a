#include "service/UrlSigner.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <doctest/doctest.h>

using cadora::service::randomHex;
using cadora::service::SignatureVerdict;
using cadora::service::SignedHeaders;
using cadora::service::UrlSigner;

namespace {

/// A request as it arrives, made from a signed query that tests then change.
struct Arrival {
    std::string method = "PUT";
    std::string path = "/store/abcd1234/audio";
    std::map<std::string, std::string> query;
    std::multimap<std::string, std::string> headers;

    SignatureVerdict judgedBy(const UrlSigner& signer, std::int64_t now) const {
        return signer.judge(
            method, path,
            [this](const std::string& name) {
                const auto found = query.find(name);
                return found == query.end() ? std::nullopt : std::optional(found->second);
            },
            [this](const std::string& name) {
                std::vector<std::string> values;
                const auto [first, last] = headers.equal_range(name);
                for (auto entry = first; entry != last; ++entry) {
                    values.push_back(entry->second);
                }
                return values;
            },
            now);
    }
};

const SignedHeaders signedHeaders = {{"content-type", "audio/mp4"}, {"x-cadora-upload", "feed"}};

Arrival arrival(const UrlSigner& signer) {
    Arrival made;
    made.headers = {signedHeaders.begin(), signedHeaders.end()};
    const std::string query = signer.query(made.method, made.path, 1000, signedHeaders);
    std::size_t start = 0;
    while (start < query.size()) {
        const std::size_t end = std::min(query.find('&', start), query.size());
        const std::size_t equals = query.find('=', start);
        made.query[query.substr(start, equals - start)] = query.substr(equals + 1, end - equals - 1);
        start = end + 1;
    }
    return made;
}

} // namespace

TEST_CASE("a signed request is accepted until the second in which it expires") {
    const UrlSigner signer("secret");
    CHECK(arrival(signer).judgedBy(signer, 0) == SignatureVerdict::accepted);
    CHECK(arrival(signer).judgedBy(signer, 999) == SignatureVerdict::accepted);
    CHECK(arrival(signer).judgedBy(signer, 1000) == SignatureVerdict::expired);
}

TEST_CASE("a signature is worth nothing under another secret") {
    CHECK(arrival(UrlSigner("secret")).judgedBy(UrlSigner("Secret"), 0) == SignatureVerdict::mismatch);
}

TEST_CASE("whatever is signed can't be changed") {
    const UrlSigner signer("secret");
    Arrival changed = arrival(signer);
    SUBCASE("the method") {
        changed.method = "GET";
    }
    SUBCASE("the path") {
        changed.path = "/store/abcd1235/audio";
    }
    SUBCASE("the expiry") {
        changed.query["expires"] = "2000";
    }
    SUBCASE("the list of headers") {
        changed.query["headers"] = "content-type";
    }
    SUBCASE("an empty list of headers") {
        changed.query["headers"] = "";
    }
    SUBCASE("a header's value") {
        changed.headers.erase("content-type");
        changed.headers.emplace("content-type", "audio/mpeg");
    }
    SUBCASE("the signature") {
        changed.query["signature"].back() ^= 1;
    }
    SUBCASE("the signature's length") {
        changed.query["signature"].pop_back();
    }
    SUBCASE("an expiry that is no number") {
        changed.query["expires"] = "1000x";
    }
    CHECK(changed.judgedBy(signer, 0) == SignatureVerdict::mismatch);
}

TEST_CASE("a header whose end another begins gives another signature") {
    const UrlSigner signer("secret");
    CHECK(signer.query("PUT", "/p", 1, {{"a", "b"}, {"c", "d"}}) !=
          signer.query("PUT", "/p", 1, {{"a", "bc:d"}}));
}

TEST_CASE("a signed header must be there once") {
    const UrlSigner signer("secret");
    Arrival changed = arrival(signer);
    SUBCASE("missing") {
        changed.headers.erase("x-cadora-upload");
    }
    SUBCASE("repeated") {
        changed.headers.emplace("x-cadora-upload", "feed");
    }
    CHECK(changed.judgedBy(signer, 0) == SignatureVerdict::headerMissing);
}

TEST_CASE("a header that is not signed may be added") {
    const UrlSigner signer("secret");
    Arrival changed = arrival(signer);
    changed.headers.emplace("user-agent", "anything");
    CHECK(changed.judgedBy(signer, 0) == SignatureVerdict::accepted);
}

TEST_CASE("a request without one of the signature's parts is unsigned") {
    const UrlSigner signer("secret");
    for (const char* part : {"expires", "headers", "signature"}) {
        Arrival changed = arrival(signer);
        changed.query.erase(part);
        CHECK(changed.judgedBy(signer, 0) == SignatureVerdict::missing);
    }
}

TEST_CASE("an expired request with a wrong signature is not told that it was once good") {
    const UrlSigner signer("secret");
    Arrival changed = arrival(signer);
    changed.path = "/store/other/audio";
    CHECK(changed.judgedBy(signer, 5000) == SignatureVerdict::mismatch);
}

TEST_CASE("random text is as long as asked for and never the same") {
    CHECK(randomHex(8).size() == 16);
    CHECK(randomHex(8) != randomHex(8));
    CHECK(randomHex(32).find_first_not_of("0123456789abcdef") == std::string::npos);
}
