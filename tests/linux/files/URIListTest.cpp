#include "hosts/linux/files/URIList.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

namespace cadora::test {

namespace {

using Texts = std::vector<std::string>;

Texts textsOf(const URIListPasteboard& pasteboard) {
    Texts texts;
    for (const URL& url : pasteboard.readURLs()) {
        texts.push_back(url.text());
    }
    return texts;
}

} // namespace

TEST_CASE("a pasteboard holds URIs and absolute paths, in order") {
    const URIListPasteboard pasteboard(
        {"file:///home/u/a%20b.wav", "/home/u/c d.wav", "https://cadora.example/p", "file:///home/u/e.wav"});
    CHECK(textsOf(pasteboard) == Texts{"file:///home/u/a%20b.wav", "file:///home/u/c%20d.wav",
                                       "https://cadora.example/p", "file:///home/u/e.wav"});
    CHECK(pasteboard.readURLs()[1].filePath() == "/home/u/c d.wav");
}

TEST_CASE("an empty list, and one of nothing usable, is an empty pasteboard") {
    CHECK(textsOf(URIListPasteboard({})).empty());
    CHECK(textsOf(URIListPasteboard({"", "file:///100%.wav"})).empty());
}

TEST_CASE("a file's URI that is not well-formed is remembered apart") {
    const URIListPasteboard pasteboard(
        {"file:///a.wav", "file:///100%.wav", "FILE:///%zz", "https://e.example/100%", "100%", ""});
    CHECK(textsOf(pasteboard) == Texts{"file:///a.wav"});
    CHECK(pasteboard.malformedFileURIs() == Texts{"file:///100%.wav", "FILE:///%zz"});
}

TEST_CASE("a URI that shows its name unescaped names the same file") {
    const URIListPasteboard pasteboard({"file:///home/u/Żółć & \"x\".wav"});
    REQUIRE(pasteboard.readURLs().size() == 1);
    CHECK(pasteboard.readURLs()[0].filePath() == "/home/u/Żółć & \"x\".wav");
}

TEST_CASE("a path may hold what means something in a URI") {
    const URIListPasteboard pasteboard({"/home/u/100%/a#b?c=d%20.wav"});
    REQUIRE(pasteboard.readURLs().size() == 1);
    CHECK(pasteboard.readURLs()[0].filePath() == "/home/u/100%/a#b?c=d%20.wav");
}

TEST_CASE("arguments become URIs that another process understands") {
    CHECK(uriList({"song.wav", "/abs/x.wav", "../up.wav"}, "/home/u/Music") ==
          Texts{"file:///home/u/Music/song.wav", "file:///abs/x.wav", "file:///home/u/Music/../up.wav"});
    CHECK(uriList({}, "/home/u").empty());
}

TEST_CASE("a path of any bytes survives as a URI") {
    const std::string name = "caf\xe9 \n%41#?:\x01.wav";
    const Texts uris = uriList({name}, "/home/u");
    REQUIRE(uris.size() == 1);
    CHECK(URL::parse(uris[0])->filePath() == "/home/u/" + name);
}

TEST_CASE("arguments that are URIs stay what they are") {
    const Texts uris{"file:///a%20b.wav", "FILE:/a.wav", "cadora://auth?token=x", "Cadora:auth",
                     "https://e.example/x"};
    CHECK(uriList(uris, "/home/u") == uris);
    CHECK(uriList({"file:///a b.wav"}, "/home/u") == Texts{"file:///a%20b.wav"});
}

TEST_CASE("a file name with a colon is a path") {
    CHECK(uriList({"take:2.wav", "12:30.wav", "file:name.wav", "cadora", ":x", "://x", "-style"}, "/m") ==
          Texts{"file:///m/take%3A2.wav", "file:///m/12%3A30.wav", "file:///m/file%3Aname.wav",
                "file:///m/cadora", "file:///m/%3Ax", "file:///m/%3A//x", "file:///m/-style"});
}

} // namespace cadora::test
