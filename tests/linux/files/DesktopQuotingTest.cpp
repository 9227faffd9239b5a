#include "hosts/linux/files/DesktopQuoting.h"

#include <doctest/doctest.h>

namespace cadora::test {

TEST_CASE("a path can be written down when it is absolute text without control characters") {
    CHECK(canBeWrittenDown("/opt/a b/ü"));
    CHECK_FALSE(canBeWrittenDown("opt/a"));
    CHECK_FALSE(canBeWrittenDown("/opt/\xff"));
    CHECK_FALSE(canBeWrittenDown("/opt/a\nb"));
}

TEST_CASE("a word of a shell's command keeps every character") {
    CHECK(shellWord("") == "''");
    CHECK(shellWord("a b$`\\\"") == "'a b$`\\\"'");
    CHECK(shellWord("it's") == "'it'\\''s'");
}

TEST_CASE("a value of a key file keeps backslashes, line breaks and a leading space") {
    CHECK(keyFileValue("a b") == "a b");
    CHECK(keyFileValue(" a\\b\nc\td\r") == "\\sa\\\\b\\nc\\td\\r");
}

TEST_CASE("a word of an Exec key is quoted once for its own rules and once for the file's") {
    CHECK(execWord("/opt/a b") == "\"/opt/a b\"");
    CHECK(execWord("100%") == "100%%");
    CHECK(execWord("/opt/a-b/c") == "/opt/a-b/c");
    CHECK(execWord("") == "\"\"");
    CHECK(execWord("\"`$\\") == R"("\\"\\`\\$\\\\")");
}

TEST_CASE("percent signs are doubled where one alone has a meaning") {
    CHECK(doubledPercent("100%%U") == "100%%%%U");
}

TEST_CASE("character data of an XML document is ASCII") {
    CHECK(xmlText("a<b>&'\"") == "a&#60;b&#62;&#38;&#39;&#34;");
    CHECK(xmlText("ü€🎵") == "&#252;&#8364;&#127925;");
}

TEST_CASE("a string of a Python source keeps quotes and backslashes") {
    CHECK(pythonString("a\"b\\c") == R"(a\"b\\c)");
}

TEST_CASE("lines are left out by their beginning, within one group or everywhere") {
    CHECK(withoutLines("a=1\nb=2\na=3", "a=") == "b=2\n");
    CHECK(withoutLines("a=1\n[x]\na=2\nb=3\n[y]\na=4\n", "a=", "[x]") == "a=1\n[x]\nb=3\n[y]\na=4\n");
    CHECK(withoutLines("[x] \r\na=2\r\n", "a=", "[x]") == "[x] \r\n");
    CHECK(withoutLines("", "a=").empty());
}

} // namespace cadora::test
