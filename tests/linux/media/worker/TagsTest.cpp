#include "hosts/linux/media/worker/Tags.h"

#include <doctest/doctest.h>

using namespace cadora;

TEST_CASE("a tag in UTF-8 stays as it is") {
    CHECK(readableText("Motörhead – ライブ 🎸") == "Motörhead – ライブ 🎸");
}

TEST_CASE("a tag in Latin-1 is read as that") {
    CHECK(readableText("Mot\xf6rhead") == "Motörhead");
}

TEST_CASE("overlong, surrogate and cut sequences are no UTF-8") {
    for (const char* bytes : {"\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82"}) {
        const std::string text = readableText(bytes);
        CHECK(text == readableText(text));
        CHECK(text != bytes);
    }
}

TEST_CASE("control characters are dropped from a tag, line breaks kept") {
    CHECK(readableText(std::string("a\x01"
                                   "b\nc\x7f"
                                   "d\0e",
                                   9)) == "ab\ncde");
}

TEST_CASE("a very long tag is cut between two characters") {
    std::string bytes;
    while (bytes.size() < 100000) {
        bytes += "é";
    }
    const std::string text = readableText(bytes);
    CHECK(text.size() <= 16 * 1024);
    CHECK(text.size() > 16 * 1024 - 8);
    CHECK(text == bytes.substr(0, text.size()));
    CHECK(text.size() % 2 == 0);
}

TEST_CASE("only the tags that any music file has are carried over") {
    const std::map<std::string, std::string> tags = {
        {"TITLE", "Song"}, {"artist", "Me"}, {"encoder", "x"}, {"major_brand", "M4A "}, {"comment", ""}};
    CHECK(commonTags(tags) == std::map<std::string, std::string>{{"artist", "Me"}, {"title", "Song"}});
}
