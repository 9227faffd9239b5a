#include "hosts/linux/desktop/MenuWindow.h"

#include "linux/desktop/Widgets.h"

#include <QAccessible>
#include <QLabel>
#include <QPushButton>
#include <QTest>

#include <doctest/doctest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

class RecordingTarget : public MenuTarget {
public:
    std::vector<MenuAction> performed;
    void perform(MenuAction action) override { performed.push_back(action); }
};

Menu sample(const std::string& upload) {
    const Menu settings{MenuCommand{"Private", MenuAction::setVisibilityPrivate, CheckMark::on}};
    return {MenuCommand{"Sign in to Cadora…", MenuAction::signIn},
            MenuSeparator{},
            MenuInformation{upload},
            MenuSeparator{},
            MenuSubmenu{"Settings", settings},
            MenuCommand{"Quit Cadora Helper", MenuAction::quit, CheckMark::off, "q"},
            MenuSeparator{},
            MenuInformation{"How to use:"}};
}

struct Fixture {
    Widgets widgets;
    RecordingTarget target;
    MenuWindow window;

    Fixture() {
        window.showMenu(sample("No uploads"), target);
        window.show();
        window.activateWindow();
        widgets.loop.runPending();
    }

    QPushButton& button(const char* text) {
        for (QPushButton* const found : Widgets::visible<QPushButton>(window)) {
            if (found->text() == QString::fromUtf8(text)) {
                return *found;
            }
        }
        throw std::runtime_error("no such button");
    }
};

} // namespace

TEST_CASE("the menu's window shows the menu's lines in order") {
    Fixture fixture;
    CHECK(Widgets::texts(fixture.window) == std::vector<std::string>{"Sign in to Cadora…", "No uploads",
                                                                     "Settings", "Quit Cadora Helper",
                                                                     "How to use:"});
    QMenu* const settings = fixture.button("Settings").menu();
    REQUIRE(settings->actions().size() == 1);
    CHECK(settings->actions()[0]->text() == "Private");
    CHECK(settings->actions()[0]->isChecked());
    Widgets::savePicture(fixture.window, "menu-window");
}

TEST_CASE("the menu's window does what its buttons, submenus and shortcuts say") {
    Fixture fixture;
    QTest::keyClick(&fixture.button("Sign in to Cadora…"), Qt::Key_Return);
    fixture.button("Settings").menu()->actions()[0]->trigger();
    QTest::keyClick(&fixture.window, Qt::Key_Q, Qt::ControlModifier);
    fixture.widgets.loop.runUntil([&fixture] { return fixture.target.performed.size() == 3; });
    CHECK(fixture.target.performed ==
          std::vector{MenuAction::signIn, MenuAction::setVisibilityPrivate, MenuAction::quit});
}

TEST_CASE("every line of the menu's window can be reached by the keyboard") {
    Fixture fixture;
    std::vector<std::string> reached;
    fixture.button("Sign in to Cadora…").setFocus();
    for (int i = 0; i < 5; ++i) {
        reached.push_back(QAccessible::queryAccessibleInterface(QApplication::focusWidget())
                              ->text(QAccessible::Name)
                              .toStdString());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    CHECK(reached == Widgets::texts(fixture.window));
}

TEST_CASE("the menu's window follows the menu, and the keyboard stays where it was") {
    Fixture fixture;
    fixture.button("Quit Cadora Helper").setFocus();
    const QMenu* const settings = fixture.button("Settings").menu();
    fixture.window.showMenu(sample("take & retake.wav — staged"), fixture.target);
    fixture.widgets.loop.runPending();
    CHECK(Widgets::texts(fixture.window)[1] == "take & retake.wav — staged");
    CHECK(QApplication::focusWidget() == &fixture.button("Quit Cadora Helper"));
    CHECK(fixture.button("Settings").menu() == settings);
}

TEST_CASE("a line that is read keeps the keyboard when its text changes") {
    Fixture fixture;
    QTest::keyClick(&fixture.window, Qt::Key_Tab);
    const auto* const read = dynamic_cast<QLabel*>(QApplication::focusWidget());
    REQUIRE(read != nullptr);
    REQUIRE(read->text() == "No uploads");
    fixture.window.showMenu(sample("take.wav — staged"), fixture.target);
    fixture.widgets.loop.runPending();
    const auto* const changed = dynamic_cast<QLabel*>(QApplication::focusWidget());
    REQUIRE(changed != nullptr);
    CHECK(changed->text() == QString::fromUtf8("take.wav — staged"));
}

TEST_CASE("Escape and Ctrl+W close the menu's window") {
    Fixture fixture;
    QTest::keyClick(&fixture.window, Qt::Key_Escape);
    CHECK_FALSE(fixture.window.isVisible());
    fixture.window.show();
    fixture.window.activateWindow();
    fixture.widgets.loop.runPending();
    QTest::keyClick(&fixture.window, Qt::Key_W, Qt::ControlModifier);
    CHECK_FALSE(fixture.window.isVisible());
}

} // namespace cadora::test
