#include "api/WireTypes.h"

#include "base/Json.h"

#include <doctest/doctest.h>

#include <limits>

using namespace cadora;

TEST_CASE("a presign request is written compactly in its order") {
    CHECK(PresignRequest{"k3x9q0ab", {"audio"}}.encode() == R"({"uuid":"k3x9q0ab","files":["audio"]})");
    CHECK(PresignRequest{"a", {}}.encode() == R"({"uuid":"a","files":[]})");
}

TEST_CASE("a presign answer without headers and lifetime, or with null in their place, reads as without") {
    for (const char* text : {R"({"urls":{"audio":"https://s/1"}})",
                             R"({"urls":{"audio":"https://s/1"},"headers":null,"expires_in":null,"x":1})"}) {
        const auto response = PresignResponse::decode(text);
        CHECK(response.urls.at("audio") == "https://s/1");
        CHECK_FALSE(response.headers);
        CHECK_FALSE(response.expires_in);
    }
}

TEST_CASE("a presign answer keeps headers with all their values, and the lifetime") {
    const auto response = PresignResponse::decode(
        R"({"urls":{},"headers":{"audio":{"X-A":["1","2"],"X-B":[]}},"expires_in":9223372036854775807})");
    CHECK(response.headers->at("audio").at("X-A") == std::vector<std::string>{"1", "2"});
    CHECK(response.headers->at("audio").at("X-B").empty());
    CHECK(response.expires_in == std::numeric_limits<std::int64_t>::max());
}

TEST_CASE("a presign answer without urls, or with null for them, can't be read") {
    for (const char* text :
         {"{}", R"({"urls":null})", R"({"urls":[]})", R"({"urls":{"audio":5}})", R"({"urls":{"audio":null}})",
          R"({"urls":{},"expires_in":1.5})", R"({"urls":{},"expires_in":9223372036854775808})",
          R"({"urls":{},"headers":{"audio":{"X":"1"}}})", "[]", "", "{\"urls\":{}} x", "not json"}) {
        CAPTURE(text);
        CHECK_THROWS_AS(PresignResponse::decode(text), json::DecodingError);
    }
    CHECK(PresignResponse::decode(R"({"urls":{}})").urls.empty());
}

TEST_CASE("a sync request without title and duration has exactly three keys") {
    const SyncRequest request{"k3x9q0ab", std::nullopt, "private", {"audio"}, std::nullopt, std::nullopt};
    CHECK(request.encode() == R"({"uuid":"k3x9q0ab","visibility":"private","uploaded_files":["audio"]})");
}

TEST_CASE("a full sync request is written in its order") {
    const SyncRequest request{"u", "Take 2 — \"live\"", "subscribers", {"audio"}, 12.0, std::nullopt};
    CHECK(
        request.encode() ==
        R"({"uuid":"u","body":"Take 2 — \"live\"","visibility":"subscribers","uploaded_files":["audio"],"duration":12})");
}

TEST_CASE("a sync request whose duration is not finite can't be written") {
    for (const double duration :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        const SyncRequest request{"u", std::nullopt, "private", {"audio"}, duration, std::nullopt};
        CHECK_THROWS_AS(request.encode(), json::EncodingError);
    }
}

TEST_CASE("a sync answer of {} or with extra keys can be read") {
    CHECK(SyncResponse::decode("{}") == SyncResponse{});
    CHECK(SyncResponse::decode(R"({"success":false,"post_id":7,"uuid":"u","later":{}})") ==
          SyncResponse{false, 7, "u"});
}

TEST_CASE("a sync answer of the wrong shape can't be read") {
    for (const char* text : {"", "null", "[]", R"({"success":1})", R"({"post_id":1.5})", R"({"post_id":"1"})",
                             R"({"uuid":5})", "{} {}", "{\"uuid\":\"\xFF\"}"}) {
        CAPTURE(text);
        CHECK_THROWS_AS(SyncResponse::decode(text), json::DecodingError);
    }
}

TEST_CASE("every record comes back from its own JSON") {
    const PresignRequest presign{"u", {"audio", "waveform"}};
    CHECK(PresignRequest::decode(presign.encode()) == presign);
    const PresignResponse urls{{{"audio", "https://s"}}, {{{"audio", {{"X", {"1"}}}}}}, 60};
    CHECK(PresignResponse::decode(urls.encode()) == urls);
    const SyncRequest sync{"u", "t", "private", {"audio"}, 0.5, "2026"};
    CHECK(SyncRequest::decode(sync.encode()) == sync);
    const SyncResponse answer{true, -1, "u"};
    CHECK(SyncResponse::decode(answer.encode()) == answer);
    CHECK(SyncResponse{}.encode() == "{}");
}
