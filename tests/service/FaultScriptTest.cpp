#include "service/FaultScript.h"

#include <chrono>
#include <stdexcept>
#include <vector>

#include <doctest/doctest.h>
#include <nlohmann/json.hpp>

using cadora::service::BodyFirst;
using cadora::service::CountedFrom;
using cadora::service::Fault;
using cadora::service::FaultScript;
using cadora::service::Interruption;
using nlohmann::json;

namespace {

Fault only(const json& rule) {
    FaultScript script;
    script.add(rule);
    return script.next("PUT", "/store/a/audio").value();
}

} // namespace

TEST_CASE("a fault without conditions spoils every request") {
    FaultScript script;
    script.add({{"status", 500}});
    CHECK(script.next("GET", "/"));
    CHECK(script.next("PUT", "/store/a/audio"));
}

TEST_CASE("a fault spoils only the method and the path that it names") {
    FaultScript script;
    script.add({{"method", "PUT"}, {"path", "/store/"}, {"status", 500}});
    CHECK(script.next("PUT", "/store/a/audio"));
    CHECK_FALSE(script.next("GET", "/store/a/audio"));
    CHECK_FALSE(script.next("PUT", "/stor"));
}

TEST_CASE("a fault spoils the calls whose numbers it names") {
    FaultScript script;
    script.add({{"method", "PUT"}, {"calls", {1, 3}}, {"status", 500}});
    std::vector<bool> spoiled;
    for (int call = 0; call < 4; ++call) {
        CHECK_FALSE(script.next("GET", "/"));
        spoiled.push_back(script.next("PUT", "/").has_value());
    }
    CHECK(spoiled == std::vector{true, false, true, false});
    CHECK(script.list().at(0).at("matched") == 4);
}

TEST_CASE("the first fault that spoils a request decides, and the others count it") {
    FaultScript script;
    script.add(json::array({{{"calls", {1}}, {"status", 500}}, {{"calls", {2}}, {"status", 501}}}));
    CHECK(script.next("PUT", "/")->answer->status == 500);
    CHECK(script.next("PUT", "/")->answer->status == 501);
    CHECK_FALSE(script.next("PUT", "/"));
}

TEST_CASE("cleared faults spoil nothing, and numbers are not used again") {
    FaultScript script;
    CHECK(script.add({{"status", 500}}) == std::vector<std::int64_t>{1});
    script.clear();
    CHECK_FALSE(script.next("PUT", "/"));
    CHECK(script.list().empty());
    CHECK(script.add({{"status", 500}}) == std::vector<std::int64_t>{2});
}

TEST_CASE("every field of a fault is understood") {
    const Fault answer = only({{"delay_ms", 5},
                               {"status", 307},
                               {"body", "b"},
                               {"content_type", "text/plain"},
                               {"headers", {{"X-A", "a"}}},
                               {"location", "/l"},
                               {"read_body", false}});
    CHECK(answer.delay == std::chrono::milliseconds(5));
    REQUIRE(answer.answer);
    CHECK(answer.answer->status == 307);
    CHECK(answer.answer->body == "b");
    CHECK(answer.answer->contentType == "text/plain");
    CHECK(answer.answer->headers.at("X-A") == "a");
    CHECK(answer.answer->headers.at("Location") == "/l");
    CHECK(answer.bodyFirst == BodyFirst::no);
    CHECK(only({{"stall", true}, {"stall_limit_ms", 7}}).stallBeforeHandling);
    CHECK(only({{"stall_limit_ms", 7}}).stallLimit == std::chrono::milliseconds(7));
    CHECK(only({{"raw", "r"}}).rawAnswer == "r");
    CHECK(only({{"close_after_request_bytes", 1}}).requestCut->interruption == Interruption::close);
    CHECK(only({{"reset_after_request_bytes", 1}}).requestCut->interruption == Interruption::reset);
    CHECK(only({{"stall_after_request_bytes", 1}}).requestCut->interruption == Interruption::stall);
    CHECK(only({{"close_after_response_bytes", 1}}).answerCut->interruption == Interruption::close);
    CHECK(only({{"reset_after_response_bytes", 1}}).answerCut->interruption == Interruption::reset);
    CHECK(only({{"stall_after_response_bytes", 9}}).answerCut->interruption == Interruption::stall);
    CHECK(only({{"stall_after_response_bytes", 9}}).answerCut->bytes == 9);
    CHECK(only({{"count_response_from", "body"}}).answerCountedFrom == CountedFrom::body);
    CHECK(only({{"count_response_from", "status_line"}}).answerCountedFrom == CountedFrom::statusLine);
    CHECK(only({{"pace_bytes", 3}, {"pace_ms", 4}}).pace->bytes == 3);
    CHECK(only({{"pace_bytes", 3}, {"pace_ms", 4}}).pace->pause == std::chrono::milliseconds(4));
}

TEST_CASE("a fault that is not understood is refused") {
    for (const json& rule : std::vector<json>{7,
                                              {{"statsu", 500}},
                                              {{"status", "500"}},
                                              {{"status", 100}},
                                              {{"status", 600}},
                                              {{"status", 500.5}},
                                              {{"delay_ms", -1}},
                                              {{"delay_ms", 600001}},
                                              {{"calls", 1}},
                                              {{"calls", json::array()}},
                                              {{"calls", {0}}},
                                              {{"method", 1}},
                                              {{"path", nullptr}},
                                              {{"stall", 1}},
                                              {{"headers", {"a"}}},
                                              {{"headers", {{"a", 1}}}},
                                              {{"read_body", "no"}},
                                              {{"raw", 1}},
                                              {{"count_response_from", "end"}},
                                              {{"close_after_request_bytes", -1}},
                                              {{"pace_bytes", 1}},
                                              {{"pace_ms", 1}},
                                              {{"pace_bytes", 0}, {"pace_ms", 1}},
                                              {{"body", "x"}},
                                              {{"location", "/x"}}}) {
        CAPTURE(rule);
        FaultScript script;
        CHECK_THROWS_AS(script.add(rule), std::invalid_argument);
    }
}

TEST_CASE("of several faults none is added when one is not understood") {
    FaultScript script;
    CHECK_THROWS_AS(script.add(json::array({{{"status", 500}}, {{"statsu", 500}}})), std::invalid_argument);
    CHECK(script.list().empty());
}
