#include "base/Error.h"

#include <doctest/doctest.h>

#include <stdexcept>

using namespace cadora;

TEST_CASE("a platform's error is shown in its own words") {
    const PlatformError error("POSIX", 28, "“song.wav” couldn’t be copied: No space left on device");
    CHECK(error.text() == "“song.wav” couldn’t be copied: No space left on device");
    CHECK(std::string(error.what()) == error.text());
}

TEST_CASE("platform errors are equal when domain, code and message are") {
    CHECK(PlatformError("POSIX", 2, "gone") == PlatformError("POSIX", 2, "gone"));
    CHECK_FALSE(PlatformError("POSIX", 2, "gone") == PlatformError("URL", 2, "gone"));
    CHECK_FALSE(PlatformError("POSIX", 2, "gone") == PlatformError("POSIX", 3, "gone"));
}

TEST_CASE("a case's text payload stands in double quotes, with what would end them escaped") {
    CHECK(caseText("missingURL", "audio") == R"(missingURL("audio"))");
    CHECK(caseText("missingURL", "a\"b\\c\nd\te\r") == R"(missingURL("a\"b\\c\nd\te\r"))");
    CHECK(caseText("http", -1) == "http(-1)");
}

TEST_CASE("an error's text has a bounded length, and ends between two characters") {
    const auto textOf = [](const std::string& message) {
        return errorText(std::make_exception_ptr(PlatformError("x", 1, message)));
    };
    CHECK(textOf(std::string(1000, 'x')) == std::string(1000, 'x'));
    CHECK(textOf(std::string(100'000, 'x')) == std::string(1000, 'x') + "…");
    std::string accents;
    for (int i = 0; i < 1000; ++i) {
        accents += "é";
    }
    CHECK(textOf("x" + accents) == "x" + accents.substr(0, 998) + "…");
    CHECK(textOf("xx" + accents) == "xx" + accents.substr(0, 998) + "…");
}

TEST_CASE("anything that can be caught has a text") {
    CHECK(errorText(std::make_exception_ptr(PlatformError("x", 1, "words"))) == "words");
    CHECK(errorText(std::make_exception_ptr(std::runtime_error("library"))) == "library");
    CHECK(errorText(std::make_exception_ptr(CancellationError())) == "CancellationError()");
    CHECK(errorText(std::make_exception_ptr(7)) == "unknown error");
}
