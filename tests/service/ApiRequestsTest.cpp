#include "service/ApiRequests.h"

#include <optional>
#include <string>

#include <doctest/doctest.h>

using cadora::service::contentTypeOf;
using cadora::service::parsePresignOrder;
using cadora::service::parseSyncOrder;
using cadora::service::Post;
using cadora::service::PresignOrder;
using cadora::service::Refusal;

namespace {

template <typename Parse> std::optional<int> refusedWith(Parse parse, const std::string& body) {
    try {
        parse(body);
        return std::nullopt;
    } catch (const Refusal& refusal) {
        return refusal.status;
    }
}

} // namespace

TEST_CASE("a presign order names an upload and its files") {
    const PresignOrder order = parsePresignOrder(R"({"files":["audio","waveform"],"uuid":"abcd1234"})");
    CHECK(order.uuid == "abcd1234");
    CHECK(order.files == std::vector<std::string>{"audio", "waveform"});
}

TEST_CASE("a presign order of the wrong shape is refused") {
    for (const char* body : {"[]", "\"x\"", "{}", R"({"uuid":"abcd1234"})", R"({"files":["audio"]})",
                             R"({"uuid":null,"files":["audio"]})", R"({"uuid":7,"files":["audio"]})",
                             R"({"uuid":"","files":["audio"]})", R"({"uuid":"../x","files":["audio"]})",
                             R"({"uuid":"abcd1234","files":[]})", R"({"uuid":"abcd1234","files":"audio"})",
                             R"({"uuid":"abcd1234","files":[1]})", R"({"uuid":"abcd1234","files":["a/b"]})",
                             R"({"uuid":"abcd1234","files":["audio","audio"]})",
                             R"({"uuid":"abcd1234","files":["audio"],"extra":1})"}) {
        CAPTURE(body);
        CHECK(refusedWith(parsePresignOrder, body) == 422);
    }
}

TEST_CASE("a body that is not JSON is refused as such") {
    for (const char* body : {"", "{", "{\"uuid\":\"abcd1234\"} x", "{\"uuid\":\"\xff\"}", "uuid=abcd1234"}) {
        CAPTURE(body);
        CHECK(refusedWith(parsePresignOrder, body) == 400);
        CHECK(refusedWith(parseSyncOrder, body) == 400);
    }
}

TEST_CASE("a sync order with nothing optional is taken") {
    const Post post =
        parseSyncOrder(R"({"uuid":"abcd1234","visibility":"subscribers","uploaded_files":["audio"]})");
    CHECK(post.uuid == "abcd1234");
    CHECK(post.visibility == "subscribers");
    CHECK(post.uploadedFiles == std::vector<std::string>{"audio"});
    CHECK_FALSE(post.body);
    CHECK_FALSE(post.duration);
    CHECK_FALSE(post.recordedAt);
}

TEST_CASE("a sync order with everything is taken as it is") {
    const Post post =
        parseSyncOrder(R"({"uuid":"abcd1234","visibility":"private","uploaded_files":["audio"],)"
                       R"("body":"Tëst","duration":0.5,"recorded_at":"2026-01-01"})");
    CHECK(post.body == "Tëst");
    CHECK(post.duration == 0.5);
    CHECK(post.recordedAt == "2026-01-01");
}

TEST_CASE("a sync order of the wrong shape is refused") {
    const std::string start = R"({"uuid":"abcd1234","uploaded_files":["audio"],"visibility":)";
    for (const std::string& body :
         {start + "\"public\"}", start + "null}", start + R"("private","duration":null})",
          start + R"("private","duration":-1})", start + R"("private","duration":"1"})",
          start + R"("private","duration":true})", start + R"("private","body":null})",
          start + R"("private","body":1})", start + R"("private","recorded_at":1})",
          start + R"("private","title":"x"})", std::string(R"({"uuid":"abcd1234","visibility":"private"})"),
          std::string(R"({"uuid":"abcd1234","visibility":"private","uploaded_files":[]})"),
          std::string(R"({"visibility":"private","uploaded_files":["audio"]})")}) {
        CAPTURE(body);
        CHECK(refusedWith(parseSyncOrder, body) == 422);
    }
}

TEST_CASE("every file key has a type") {
    CHECK(contentTypeOf("audio") == "audio/mp4");
    CHECK(contentTypeOf("waveform") == "image/webp");
    CHECK(contentTypeOf("waveform_smooth") == "image/webp");
    CHECK(contentTypeOf("cover") == "image/jpeg");
}
