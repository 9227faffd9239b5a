#include "hosts/linux/desktop/MenuWindow.h"
#include "hosts/linux/desktop/QtColors.h"

#include "linux/desktop/Widgets.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QLabel>
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
    const Menu visibility{MenuCommand{"Private", MenuAction::setVisibilityPrivate, CheckMark::on},
                          MenuCommand{"Live (for fans)", MenuAction::setVisibilityLive}};
    const Menu settings{
        MenuSubmenu{"Visibility: Private", visibility}, MenuSeparator{},
        MenuCommand{"Show Cadora Helper in top menu", MenuAction::toggleMenuBarIcon, CheckMark::on},
        MenuSeparator{}, MenuCommand{"Uninstall Cadora Helper…", MenuAction::uninstall}};
    return {MenuCommand{"Sign in to Cadora…", MenuAction::signIn},
            MenuSeparator{},
            MenuInformation{upload},
            MenuSeparator{},
            MenuSubmenu{"Settings", settings},
            MenuCommand{"Quit Cadora Helper", MenuAction::quit, CheckMark::off, "q"},
            MenuSeparator{},
            MenuInformation{"How to use:"}};
}

const std::vector<std::string> lines{"Sign in to Cadora…",
                                     "No uploads",
                                     "Settings",
                                     "Visibility: Private",
                                     "Private",
                                     "Live (for fans)",
                                     "Show Cadora Helper in top menu",
                                     "Uninstall Cadora Helper…",
                                     "Quit Cadora Helper",
                                     "How to use:"};

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

    QAbstractButton& button(const char* text) {
        for (QAbstractButton* const found : Widgets::visible<QAbstractButton>(window)) {
            if (found->text() == QString::fromUtf8(text)) {
                return *found;
            }
        }
        throw std::runtime_error("no such button");
    }

    static std::string focused() {
        return QAccessible::queryAccessibleInterface(QApplication::focusWidget())
            ->text(QAccessible::Name)
            .toStdString();
    }

    // What the keyboard comes to, from the first command on.
    std::vector<std::string> reached() {
        std::vector<std::string> result;
        button("Sign in to Cadora…").setFocus();
        for (std::size_t i = 0; i < lines.size(); ++i) {
            result.push_back(focused());
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        }
        return result;
    }
};

} // namespace

TEST_CASE("the menu's window shows the menu's lines in order") {
    Fixture fixture;
    CHECK(fixture.reached() == lines);
    CHECK(fixture.window.windowTitle().endsWith(" Menu"));
    Widgets::savePicture(fixture.window, "menu-window");
}

TEST_CASE("the menu's window shows what is chosen and what is switched on") {
    Fixture fixture;
    CHECK(fixture.button("Private").isChecked());
    CHECK_FALSE(fixture.button("Live (for fans)").isChecked());
    CHECK(fixture.button("Show Cadora Helper in top menu").isChecked());
    // Only the next menu says that it has changed.
    fixture.button("Live (for fans)").click();
    CHECK_FALSE(fixture.button("Live (for fans)").isChecked());
    CHECK(fixture.target.performed == std::vector{MenuAction::setVisibilityLive});
}

TEST_CASE("in the menu's window what destroys is marked, and information is no button") {
    Fixture fixture;
    const auto title = [&](const char* text) {
        return fixture.button(text).palette().color(QPalette::ButtonText);
    };
    CHECK(title("Uninstall Cadora Helper…") != title("Quit Cadora Helper"));
    CHECK(title("Uninstall Cadora Helper…").red() > title("Uninstall Cadora Helper…").green());
    CHECK_THROWS(fixture.button("No uploads"));
    CHECK_THROWS(fixture.button("Settings"));
}

TEST_CASE("the menu's window in the dark is readable") {
    Fixture fixture;
    QApplication::setPalette(Widgets::dark());
    fixture.window.showMenu(sample("No uploads"), fixture.target);
    fixture.widgets.loop.runPending();
    for (const char* const text : {"Uninstall Cadora Helper…", "Sign in to Cadora…"}) {
        const QPalette colors = fixture.button(text).palette();
        CHECK(contrast(colors.color(QPalette::ButtonText), colors.color(QPalette::Button)) >= 4.5);
    }
    Widgets::savePicture(fixture.window, "menu-window-dark");
}

TEST_CASE("the menu's window does what its buttons, submenus and shortcuts say") {
    Fixture fixture;
    QTest::keyClick(&fixture.button("Sign in to Cadora…"), Qt::Key_Return);
    QTest::keyClick(&fixture.button("Live (for fans)"), Qt::Key_Space);
    QTest::keyClick(&fixture.window, Qt::Key_Q, Qt::ControlModifier);
    fixture.widgets.loop.runUntil([&fixture] { return fixture.target.performed.size() == 3; });
    CHECK(fixture.target.performed ==
          std::vector{MenuAction::signIn, MenuAction::setVisibilityLive, MenuAction::quit});
}

TEST_CASE("every line of the menu's window can be reached by the keyboard") {
    Fixture fixture;
    CHECK(QApplication::focusWidget() == &fixture.button("Sign in to Cadora…"));
    CHECK(fixture.reached() == lines);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down);
    CHECK(fixture.focused() == lines[1]);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Up);
    CHECK(fixture.focused() == lines[0]);
}

TEST_CASE("the menu's window follows the menu, and the keyboard stays where it was") {
    Fixture fixture;
    fixture.button("Quit Cadora Helper").setFocus();
    fixture.window.showMenu(sample("take & retake.wav — staged"), fixture.target);
    fixture.widgets.loop.runPending();
    CHECK(QString::fromUtf8("take & retake.wav — staged") ==
          fixture.window.findChildren<QLabel*>().constFirst()->text());
    CHECK(QApplication::focusWidget() == &fixture.button("Quit Cadora Helper"));
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

TEST_CASE_FIXTURE(Fixture, "a long name makes the window no wider, and is whole in the tool tip") {
    const std::string whole = std::string(250, 'W') + ".wav — failed";
    window.showMenu(sample(std::string(64, 'W')), target);
    widgets.loop.runPending();
    const int widest = window.sizeHint().width();
    window.showMenu(sample(whole), target);
    widgets.loop.runPending();
    CHECK(window.sizeHint().width() <= widest);
    bool isFound = false;
    for (const QLabel* const label : Widgets::visible<QLabel>(window)) {
        isFound = isFound || (label->text() != label->toolTip() && label->toolTip().toStdString() == whole);
    }
    CHECK(isFound);
}

} // namespace cadora::test
