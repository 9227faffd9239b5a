#include "service/HeaderFields.h"

#include <string>
#include <vector>

#include <doctest/doctest.h>

using cadora::service::HeaderFields;

TEST_CASE("header fields are found in any case, with their values as sent") {
    const HeaderFields fields("GET /a:b HTTP/1.1\r\nHOST: x:1\r\nb: 1\r\nB:\t2 \r\nEmpty:\r\n"
                              "Percent: %41+b\r\nno field\r\n\r\n");
    CHECK(fields.value("host") == "x:1");
    CHECK(fields.values("b") == std::vector<std::string>{"1", "2"});
    CHECK(fields.has("empty"));
    CHECK(fields.values("empty") == std::vector<std::string>{""});
    CHECK(fields.value("percent") == "%41+b");
    CHECK(fields.value("missing").empty());
    CHECK_FALSE(fields.has("missing"));
    CHECK(fields.names() == std::vector<std::string>{"b", "empty", "host", "percent"});
}

TEST_CASE("a head without fields has none") {
    CHECK(HeaderFields("").names().empty());
    CHECK(HeaderFields("GET / HTTP/1.1\r\n\r\n").names().empty());
    CHECK(HeaderFields("GET / HTTP/1.1").names().empty());
}
