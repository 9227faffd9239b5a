#include "base/Json.h"

#include <doctest/doctest.h>

#include <limits>

using namespace cadora;

namespace {

std::int64_t integer(const char* text) {
    return json::required<std::int64_t>(json::parse(std::string(R"({"n":)") + text + "}"), "n");
}

} // namespace

TEST_CASE("an integral number is written without a fraction") {
    CHECK(json::write(json::number(816480000)) == "816480000");
    CHECK(json::write(json::number(0)) == "0");
    CHECK(json::write(json::number(-5)) == "-5");
    CHECK(json::write(json::number(9007199254740992.0)) == "9007199254740992");
}

TEST_CASE("a number with a fraction comes back as the very same number") {
    for (const double value :
         {816480000.123456, 0.1, 1e-300, 12345.678901234567, 1.7976931348623157e308, -0.0}) {
        const json::Value read = json::parse(json::write(json::number(value)));
        double back = 1;
        json::decode(read, "n", back);
        CHECK(back == value);
        CHECK(std::signbit(back) == std::signbit(value));
    }
}

TEST_CASE("a number that is not finite can't be written") {
    CHECK_THROWS_AS(json::number(std::numeric_limits<double>::quiet_NaN()), json::EncodingError);
    CHECK_THROWS_AS(json::number(std::numeric_limits<double>::infinity()), json::EncodingError);
}

TEST_CASE("text that is not UTF-8 can't be written or read") {
    CHECK_THROWS_AS(json::write(json::Value("\xFF")), json::EncodingError);
    CHECK_THROWS_AS(json::parse("\"\xFF\""), json::DecodingError);
}

TEST_CASE("an integer takes all of 64 bits and no more") {
    CHECK(integer("9223372036854775807") == std::numeric_limits<std::int64_t>::max());
    CHECK(integer("-9223372036854775808") == std::numeric_limits<std::int64_t>::min());
    CHECK_THROWS_AS(integer("9223372036854775808"), json::DecodingError);
    CHECK_THROWS_AS(integer("-9223372036854775809"), json::DecodingError);
    CHECK_THROWS_AS(integer("18446744073709551616"), json::DecodingError);
}

TEST_CASE("an integer refuses a fraction, a Boolean and a string, and takes an integral real") {
    CHECK_THROWS_AS(integer("1.5"), json::DecodingError);
    CHECK_THROWS_AS(integer("true"), json::DecodingError);
    CHECK_THROWS_AS(integer("\"1\""), json::DecodingError);
    CHECK(integer("2.0") == 2);
    CHECK(integer("1e3") == 1000);
}

TEST_CASE("an integral number is an integer, however it is written, as far as 64 bits go") {
    CHECK(integer("1e18") == 1'000'000'000'000'000'000);
    CHECK(integer("9007199254740994.0") == 9'007'199'254'740'994);
    CHECK(integer("-9.223372036854774784e18") == -9'223'372'036'854'774'784);
    CHECK_THROWS_AS(integer("9223372036854775808.0"), json::DecodingError);
    CHECK_THROWS_AS(integer("1e19"), json::DecodingError);
    CHECK_THROWS_AS(integer("-1e19"), json::DecodingError);
    CHECK_THROWS_AS(integer("4503599627370495.5"), json::DecodingError);
}

TEST_CASE("a key that comes twice has the value that came last") {
    CHECK(json::required<std::string>(json::parse(R"({"k":"first","l":1,"k":"last"})"), "k") == "last");
}

TEST_CASE("an object with very many keys is read as quickly as its length allows" * doctest::timeout(60)) {
    constexpr int count = 400'000;
    std::string text = "{";
    for (int i = 0; i < count; ++i) {
        text += "\"key " + std::to_string(i) + "\":\"\",";
    }
    text += R"("last":"here"})";
    const json::Value object = json::parse(text);
    CHECK(object.size() == count + 1);
    CHECK(json::required<std::string>(object, "last") == "here");
}

TEST_CASE("a Boolean refuses a number and a number refuses a Boolean") {
    CHECK_THROWS_AS(json::required<bool>(json::parse(R"({"b":1})"), "b"), json::DecodingError);
    CHECK_THROWS_AS(json::required<double>(json::parse(R"({"d":true})"), "d"), json::DecodingError);
}

TEST_CASE("a required key may be neither missing nor null") {
    CHECK_THROWS_AS(json::required<std::string>(json::parse("{}"), "k"), json::DecodingError);
    CHECK_THROWS_AS(json::required<std::string>(json::parse(R"({"k":null})"), "k"), json::DecodingError);
}

TEST_CASE("an optional key may be missing or null, but not of another type") {
    CHECK_FALSE(json::optional<std::string>(json::parse("{}"), "k"));
    CHECK_FALSE(json::optional<std::string>(json::parse(R"({"k":null})"), "k"));
    CHECK_THROWS_AS(json::optional<std::string>(json::parse(R"({"k":1})"), "k"), json::DecodingError);
}

TEST_CASE("trailing rubbish, half a document and nothing at all are not JSON") {
    CHECK_THROWS_AS(json::parse("{} x"), json::DecodingError);
    CHECK_THROWS_AS(json::parse("{}{}"), json::DecodingError);
    CHECK_THROWS_AS(json::parse("[1,"), json::DecodingError);
    CHECK_THROWS_AS(json::parse(""), json::DecodingError);
    CHECK_THROWS_AS(json::parse("1e999"), json::DecodingError);
}

TEST_CASE("a decoding error says where, and never quotes the data") {
    try {
        json::parse(R"({"token":"secret", oops})");
        FAIL("must throw");
    } catch (const json::DecodingError& error) {
        CHECK(error.text().find("secret") == std::string::npos);
        CHECK(error.text().find("not valid JSON") != std::string::npos);
    }
    try {
        json::required<std::map<std::string, std::string>>(json::parse(R"({"urls":{"audio":5}})"), "urls");
        FAIL("must throw");
    } catch (const json::DecodingError& error) {
        CHECK(error.text() == "The data couldn’t be read: “urls.audio” must be a string, not number");
    }
}
