#include "hosts/linux/files/TextTemplate.h"

#include "base/Error.h"

#include <doctest/doctest.h>

namespace cadora::test {

TEST_CASE("a place of a text is filled in as its language asks") {
    CHECK(filledIn("Exec=@program:exec@ %U\nTryExec=@program:keyfile@\n", {{"program", "/opt/a b/100%"}}) ==
          "Exec=\"/opt/a b/100%%\" %U\nTryExec=/opt/a b/100%\n");
    CHECK(filledIn("exec @program:shell@", {{"program", "it's"}}) == "exec 'it'\\''s'");
    CHECK(filledIn("<a>@program:xml@</a>", {{"program", "<>"}}) == "<a>&#60;&#62;</a>");
    CHECK(filledIn("P = \"@program:python@\"", {{"program", "a\"b"}}) == "P = \"a\\\"b\"");
}

TEST_CASE("a place is quoted for each language that it goes through, the innermost first") {
    CHECK(filledIn("<c>@program:shell,percent,xml@ %F</c>", {{"program", "5%"}}) ==
          "<c>&#39;5%%&#39; %F</c>");
    CHECK(filledIn("E=@program:shell,keyfile@", {{"program", "a\\b"}}) == "E='a\\\\b'");
}

TEST_CASE("what is no place of a text stays, and a value is not looked into") {
    for (const char* const text :
         {"", "@", "a@b.example", "@decorator", "@a:shell", "@A:shell@", "@@", "@a@"}) {
        CAPTURE(text);
        CHECK(filledIn(text, {{"a", "x"}}) == text);
    }
    CHECK(filledIn("@@a:xml@@", {{"a", "@a:shell@"}}) == "@@a:shell@@");
}

TEST_CASE("a place that nothing is known to stand for is an error that names it") {
    for (const char* const text : {"@other:shell@", "@a:cobol@", "@a:@", "@a:shell,@", "@:shell@"}) {
        CAPTURE(text);
        std::string problem;
        try {
            filledIn(text, {{"a", "x"}});
        } catch (const Error& error) {
            problem = error.text();
        }
        CHECK(problem == "nothing is known to stand for “" + std::string(text) + "”");
    }
}

} // namespace cadora::test
