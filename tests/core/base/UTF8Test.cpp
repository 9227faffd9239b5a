#include "base/UTF8.h"

#include <doctest/doctest.h>

using namespace cadora;

TEST_CASE("well-formed text stays as it is") {
    const std::string text = "a é 語 🎵 e\xCC\x81";
    CHECK(isValidUTF8(text));
    CHECK(repairedUTF8(text) == text);
    CHECK(isValidUTF8(""));
}

TEST_CASE("overlong forms, surrogates and what lies beyond the last character are ill-formed") {
    CHECK_FALSE(isValidUTF8("\xC0\xAF"));
    CHECK_FALSE(isValidUTF8("\xE0\x80\xAF"));
    CHECK_FALSE(isValidUTF8("\xED\xA0\x80"));
    CHECK_FALSE(isValidUTF8("\xF4\x90\x80\x80"));
    CHECK_FALSE(isValidUTF8("\xE8\xAA"));
    CHECK_FALSE(isValidUTF8("\x80"));
    CHECK_FALSE(isValidUTF8("\xC2\xC0"));
    CHECK_FALSE(isValidUTF8("\xE8\xAA\xC0"));
    CHECK_FALSE(isValidUTF8("\xC2\x7F"));
    CHECK(isValidUTF8("\xC2\xBF"));
    CHECK(isValidUTF8("\xF4\x8F\xBF\xBF"));
}

TEST_CASE("each ill-formed sequence is shown as one replacement character") {
    CHECK(repairedUTF8("caf\xE9.wav") == "caf\xEF\xBF\xBD.wav");
    CHECK(repairedUTF8("\xFF\xFE") == "\xEF\xBF\xBD\xEF\xBF\xBD");
    CHECK(repairedUTF8("\xE8\xAAx") == "\xEF\xBF\xBDx");
    CHECK(repairedUTF8("\xF0\x9F\x8E") == "\xEF\xBF\xBD");
}

TEST_CASE("a text is shortened in the middle by whole characters, and only if it is too long") {
    CHECK(shortenedInTheMiddle("abcdef", 6) == "abcdef");
    CHECK(shortenedInTheMiddle("abcdefg", 6) == "abc…fg");
    CHECK(shortenedInTheMiddle("abcdefgh", 5) == "ab…gh");
    CHECK(shortenedInTheMiddle("äöüßéèê", 5) == "äö…èê");
    CHECK(shortenedInTheMiddle("abc", 1) == "…");
    CHECK(shortenedInTheMiddle("", 1).empty());
}
