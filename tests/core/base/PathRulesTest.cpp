#include "base/PathRules.h"

#include <doctest/doctest.h>

using namespace cadora;

TEST_CASE("the last component ignores separators at the end") {
    CHECK(lastPathComponent("/a/b/song.wav") == "song.wav");
    CHECK(lastPathComponent("/a/b/") == "b");
    CHECK(lastPathComponent("song.wav") == "song.wav");
    CHECK(lastPathComponent("/") == "/");
    CHECK(lastPathComponent("//") == "/");
    CHECK(lastPathComponent("").empty());
}

TEST_CASE("the extension keeps its letter case and is the last one only") {
    CHECK(pathExtension("Take 3.WAV") == "WAV");
    CHECK(pathExtension("beat.take2.mp3") == "mp3");
    CHECK(pathExtension("/folder.d/song") == "");
    CHECK(pathExtension("demo") == "");
}

TEST_CASE("a hidden name, a dot at the end and a word after a full stop are not extensions") {
    CHECK(pathExtension(".wav") == "");
    CHECK(pathExtension("take 2.") == "");
    CHECK(pathExtension("Mr. Blue Sky") == "");
    CHECK(pathExtension("..") == "");
    CHECK(deletingPathExtension("Mr. Blue Sky") == "Mr. Blue Sky");
    CHECK(deletingPathExtension("take 2.") == "take 2.");
    CHECK(deletingPathExtension(".wav") == ".wav");
}

TEST_CASE("a mark that turns the reading direction does not hide in an extension") {
    CHECK(pathExtension("song.\xE2\x80\xAEvaw") == "");
}

TEST_CASE("a name without its extension keeps everything else") {
    CHECK(deletingPathExtension("/x/My Song.wav") == "My Song");
    CHECK(deletingPathExtension("beat.take2.mp3") == "beat.take2");
    CHECK(deletingPathExtension("   .wav") == "   ");
}

TEST_CASE("an extension that holds any direction mark is none, and one that holds their neighbours is one") {
    for (const char* mark : {"\u061C", "\u200E", "\u200F", "\u202A", "\u202E", "\u2066", "\u2069"}) {
        CAPTURE(mark);
        CHECK(pathExtension("a.w" + std::string(mark) + "v").empty());
    }
    for (const char* other :
         {"\u061B", "\u061D", "\u200D", "\u2010", "\u2029", "\u202F", "\u2065", "\u206A"}) {
        CAPTURE(other);
        CHECK(pathExtension("a.w" + std::string(other) + "v") == "w" + std::string(other) + "v");
    }
}
