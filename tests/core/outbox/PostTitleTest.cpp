#include "outbox/PostTitle.h"

#include <doctest/doctest.h>

using namespace cadora;

TEST_CASE("a title is the file's name without directory and extension") {
    CHECK(PostTitle::clean("My Song.wav") == "My Song");
    CHECK(PostTitle::clean("/Users/x/Bounces/  Take   2 (final).aif") == "Take 2 (final)");
    CHECK(PostTitle::clean("verse_idea-03.m4a") == "verse_idea-03");
    CHECK(PostTitle::clean("beat.take2.mp3") == "beat.take2");
}

TEST_CASE("a name without extension is kept whole, also one with a full stop in it") {
    CHECK(PostTitle::clean("demo") == "demo");
    CHECK(PostTitle::clean("Mr. Blue Sky") == "Mr. Blue Sky");
}

TEST_CASE("a name of blanks alone has no title") {
    CHECK_FALSE(PostTitle::clean("   .wav"));
    CHECK_FALSE(PostTitle::clean("   "));
    CHECK_FALSE(PostTitle::clean(""));
}

TEST_CASE("a tab or a line break between words becomes one space") {
    CHECK(PostTitle::clean("one\ttwo\nthree\r\n four.wav") == "one two three four");
}

TEST_CASE("every white space and line separator of Unicode counts as a blank") {
    for (const std::string space :
         {"\x0B", "\x0C", "\xC2\x85", "\xC2\xA0", "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x8A",
          "\xE2\x80\xA8", "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"}) {
        CHECK(PostTitle::clean(space + "a" + space + space + "b" + space) == "a b");
    }
    CHECK(PostTitle::clean("a\xE2\x80\x8B"
                           "b") == "a\xE2\x80\x8B"
                                   "b");
}

TEST_CASE("letter case, underscores, hyphens, digits and accents stay exactly") {
    CHECK(PostTitle::clean("Ünïcode_E\xCC\x81tude-07 🎵.flac") == "Ünïcode_E\xCC\x81tude-07 🎵");
}
