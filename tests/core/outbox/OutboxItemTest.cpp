#include "outbox/OutboxItem.h"

#include "base/Json.h"

#include <doctest/doctest.h>

#include <limits>

using namespace cadora;

namespace {

OutboxItem minimal() {
    OutboxItem item;
    item.shortID = "k3x9q0ab";
    item.sourceFilename = "song.wav";
    item.createdAt = {816480000};
    return item;
}

OutboxItem roundTrip(const OutboxItem& item) {
    return decodeOutbox(encodeOutbox({item})).at(0);
}

// An index of one item with one field replaced.
std::string withField(const std::string& field, const std::string& value) {
    json::Value object = json::parse(encodeOutbox({minimal()}))[0];
    object[field] = json::parse(value);
    return json::write(json::Value::array({object}));
}

std::string withoutField(const std::string& field) {
    json::Value object = json::parse(encodeOutbox({minimal()}))[0];
    object.erase(field);
    return json::write(json::Value::array({object}));
}

} // namespace

TEST_CASE("an item without the optional fields is an object of exactly five keys") {
    CHECK(
        encodeOutbox({minimal()}) ==
        R"([{"shortID":"k3x9q0ab","sourceFilename":"song.wav","state":"staged","attempts":0,"createdAt":816480000}])");
}

TEST_CASE("an item with everything writes its fields in order and compactly") {
    OutboxItem item = minimal();
    item.state = OutboxState::deferredAuth;
    item.attempts = 3;
    item.lastError = "notSignedIn";
    item.duration = 12.5;
    item.visibility = "subscribers";
    CHECK(encodeOutbox({item}) ==
          R"([{"shortID":"k3x9q0ab","sourceFilename":"song.wav","state":"deferredAuth","attempts":3,)"
          R"("lastError":"notSignedIn","duration":12.5,"createdAt":816480000,"visibility":"subscribers"}])");
}

TEST_CASE("an item comes back with the same values, fractions of a second included") {
    OutboxItem item = minimal();
    item.createdAt = {816480000.123456789};
    item.duration = 0.1 + 0.2;
    item.attempts = std::numeric_limits<std::int64_t>::max();
    item.lastError = "quotes \" and\nlines";
    item.visibility = "private";
    item.state = OutboxState::uploaded;
    CHECK(roundTrip(item) == item);
}

TEST_CASE("a time of 0 is the beginning of 2001") {
    using namespace std::chrono;
    CHECK(Date::from(sys_days{year{2001} / 1 / 1}) == Date{0});
    CHECK(Date::from(sys_days{year{2026} / 11 / 16}) == Date{816480000});
    OutboxItem item = minimal();
    item.createdAt = {0};
    CHECK(encodeOutbox({item}).find(R"("createdAt":0})") != std::string::npos);
    CHECK(roundTrip(item).createdAt == Date{0});
}

TEST_CASE("an optional field that is null reads as absent") {
    CHECK_FALSE(decodeOutbox(withField("duration", "null")).at(0).duration);
    CHECK_FALSE(decodeOutbox(withField("lastError", "null")).at(0).lastError);
    CHECK_FALSE(decodeOutbox(withField("visibility", "null")).at(0).visibility);
}

TEST_CASE("every state has the name of its case") {
    const std::pair<OutboxState, const char*> table[] = {
        {OutboxState::staged, "staged"},     {OutboxState::transcoded, "transcoded"},
        {OutboxState::uploaded, "uploaded"}, {OutboxState::synced, "synced"},
        {OutboxState::failed, "failed"},     {OutboxState::deferredAuth, "deferredAuth"}};
    for (const auto& [state, name] : table) {
        CHECK(rawValue(state) == name);
        CHECK(outboxState(name) == state);
    }
}

TEST_CASE("a state of another letter case or name is no state, and its item can't be read") {
    for (const char* state : {"Staged", "STAGED", "deferredauth", "unknown", "", " staged"}) {
        CHECK_FALSE(outboxState(state));
        CHECK_THROWS_AS(decodeOutbox(withField("state", "\"" + std::string(state) + "\"")),
                        json::DecodingError);
    }
}

TEST_CASE("an item without one of the required fields can't be read: there are no defaults") {
    for (const char* field : {"shortID", "sourceFilename", "state", "attempts", "createdAt"}) {
        CAPTURE(field);
        CHECK_THROWS_AS(decodeOutbox(withoutField(field)), json::DecodingError);
        CHECK_THROWS_AS(decodeOutbox(withField(field, "null")), json::DecodingError);
        CHECK_THROWS_AS(decodeOutbox(withField(field, "[]")), json::DecodingError);
    }
}

TEST_CASE("an optional field of the wrong type makes the item unreadable") {
    CHECK_THROWS_AS(decodeOutbox(withField("duration", "\"12\"")), json::DecodingError);
    CHECK_THROWS_AS(decodeOutbox(withField("lastError", "5")), json::DecodingError);
    CHECK_THROWS_AS(decodeOutbox(withField("visibility", "true")), json::DecodingError);
    CHECK_THROWS_AS(decodeOutbox(withField("attempts", "1.5")), json::DecodingError);
}

TEST_CASE("unknown keys and another order of keys are fine") {
    const auto items = decodeOutbox(R"([{"future":[1,{}],"createdAt":1.25,"attempts":2,"state":"failed",)"
                                    R"("sourceFilename":"a","shortID":"b"}])");
    REQUIRE(items.size() == 1);
    CHECK(items[0].shortID == "b");
    CHECK(items[0].createdAt == Date{1.25});
}

TEST_CASE("what is not an array of objects is no outbox") {
    for (const char* text : {"{}", "null", "[1]", "[[]]", "", "[] []", "[null]"}) {
        CHECK_THROWS_AS(decodeOutbox(text), json::DecodingError);
    }
    CHECK(decodeOutbox("[]").empty());
}

TEST_CASE("a duration that is not finite can't be written") {
    OutboxItem item = minimal();
    item.duration = std::numeric_limits<double>::infinity();
    CHECK_THROWS_AS(encodeOutbox({item}), json::EncodingError);
}

TEST_CASE("the identity of an item is its short identifier") {
    CHECK(minimal().id() == "k3x9q0ab");
}
