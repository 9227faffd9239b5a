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
