#include "platform/URLSession.h"

#include <doctest/doctest.h>

using namespace cadora;

TEST_CASE("a header replaces one of the same name, whatever its letter case, and takes the new spelling") {
    HTTPHeaderFields headers;
    headers.setValue("audio/mp4", "Content-Type");
    headers.setValue("1", "X-Other");
    headers.setValue("audio/aac", "content-type");
    CHECK(headers.size() == 2);
    CHECK(headers.value("CONTENT-TYPE") == "audio/aac");
    CHECK(headers.begin()->first == "content-type");
    CHECK_FALSE(headers.value("Accept"));
}

TEST_CASE("very many header fields are set as quickly as their number allows" * doctest::timeout(60)) {
    constexpr int count = 200'000;
    HTTPHeaderFields headers;
    for (const char* letter : {"X", "x"}) {
        for (int i = 0; i < count; ++i) {
            headers.setValue(std::to_string(i), letter + std::string("-") + std::to_string(i));
        }
    }
    CHECK(headers.size() == count);
    CHECK(headers.begin()->first == "x-0");
    CHECK(headers.value("X-199999") == "199999");
}

TEST_CASE("a copy of header fields is a list of its own") {
    HTTPHeaderFields headers;
    headers.setValue("1", "A");
    HTTPHeaderFields copy = headers;
    headers.setValue("2", "a");
    copy.setValue("3", "B");
    CHECK(headers.size() == 1);
    CHECK(copy.value("a") == "1");
    CHECK(copy.value("b") == "3");
}

TEST_CASE("a name that HTTP can carry has letters, digits and marks alone, each to the end of its row") {
    for (const char* name : {"a", "z", "A", "Z", "0", "9", "X-Azaz09!~"}) {
        CHECK(isHTTPToken(name));
    }
    // What stands beside the letters and digits in the table of characters.
    for (const char* name : {"", "{", "@", "[", "/", ":", "a b", "\xC3\xA9"}) {
        CHECK_FALSE(isHTTPToken(name));
    }
}
