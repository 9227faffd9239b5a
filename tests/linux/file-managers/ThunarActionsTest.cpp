#include "hosts/linux/file-managers/ThunarActions.h"

#include <doctest/doctest.h>

#include <string>

namespace cadora::test {

namespace {

constexpr const char* own = "<action><unique-id>7-1</unique-id></action>";

std::string list(const std::string& inside) {
    return "<actions>" + inside + "</actions>";
}

} // namespace

TEST_CASE("an action is known by its unique id alone") {
    const std::string other = "<action><name>7-1</name><unique-id>7-11</unique-id></action>";
    CHECK_FALSE(ThunarActions::parse(list(other), "7-1")->action());
    CHECK(ThunarActions::parse(list(other + "\n" + own), "7-1")->action() == own);
    const std::string escaped = "<action ><unique-id>&#55;-1</unique-id></action >";
    CHECK(ThunarActions::parse(list(escaped), "7-1")->action() == escaped);
}

TEST_CASE("an action is put behind the others, replaced in its place and removed") {
    auto actions = *ThunarActions::parse(list("\n<action/>\n"), "7-1");
    actions.put("<action>1</action>");
    CHECK(actions.text() == list("\n<action/>\n<action>1</action>\n"));
    actions.put("<action>22</action>");
    CHECK(actions.text() == list("\n<action/>\n<action>22</action>\n"));
    actions.remove();
    CHECK(actions.text() == list("\n<action/>\n"));
    actions.put(own);
    CHECK(actions.text() == list("\n<action/>\n" + std::string(own) + "\n"));
}

TEST_CASE("all of several actions of the same id are removed, and the first is replaced") {
    const std::string twice = list(std::string(own) + "<action/>" + own + "\n");
    auto actions = *ThunarActions::parse(twice, "7-1");
    actions.put("<action>longer than it was</action>");
    CHECK(actions.text() == list("<action>longer than it was</action><action/>" + std::string(own) + "\n"));
    actions.remove();
    CHECK(actions.text() == list("<action/>"));
}

TEST_CASE("an empty list takes an action, whatever its form") {
    for (const char* const empty : {"<actions/>", "<actions />", "<actions></actions>"}) {
        auto actions = *ThunarActions::parse(empty, "7-1");
        actions.put(own);
        CHECK(ThunarActions::parse(actions.text(), "7-1")->action() == own);
    }
}

TEST_CASE("a list that begins as older versions of Thunar wrote it is taken, and keeps its beginning") {
    const std::string older = "<?xml encoding=\"UTF-8\" version=\"1.0\"?>\n" + list("<action/>\n");
    auto actions = *ThunarActions::parse(older, "7-1");
    actions.put(own);
    CHECK(actions.text() ==
          "<?xml encoding=\"UTF-8\" version=\"1.0\"?>\n" + list("<action/>\n" + std::string(own) + "\n"));
    actions.remove();
    CHECK(actions.text() == older);
}

TEST_CASE("what is no list of actions is refused") {
    for (const std::string& text :
         {std::string(), std::string("<actions>"), std::string("<other/>"), list("<action>"),
          list(std::string(1, '\0')), list("\xff"), list("") + "x"}) {
        CHECK_FALSE(ThunarActions::parse(text, "7-1"));
    }
    const std::string wide("\xff\xfe<\0a\0c\0t\0i\0o\0n\0s\0/\0>\0", 22);
    CHECK_FALSE(ThunarActions::parse(wide, "7-1"));
}

} // namespace cadora::test
