#include "hosts/linux/desktop/QtMenu.h"

#include "linux/desktop/Widgets.h"

#include <QAction>
#include <QPointer>

#include <doctest/doctest.h>

#include <functional>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

class RecordingTarget : public MenuTarget {
public:
    std::vector<MenuAction> performed;
    std::function<void()> onPerform;
    void perform(MenuAction action) override {
        performed.push_back(action);
        if (onPerform) {
            onPerform();
        }
    }
};

Menu sample(std::vector<std::string> uploads) {
    Menu menu{MenuInformation{"Signed in: musician@example.org"}, MenuSeparator{}};
    for (std::string& upload : uploads) {
        menu.push_back(MenuInformation{std::move(upload)});
    }
    const Menu visibility{MenuCommand{"Private", MenuAction::setVisibilityPrivate, CheckMark::on},
                          MenuCommand{"Live (for fans)", MenuAction::setVisibilityLive}};
    const Menu settings{MenuSubmenu{"Visibility: Private", visibility}, MenuSeparator{},
                        MenuCommand{"Uninstall Cadora Helper…", MenuAction::uninstall}};
    menu.push_back(MenuSeparator{});
    menu.push_back(MenuSubmenu{"Settings", settings});
    menu.push_back(MenuCommand{"Quit Cadora Helper", MenuAction::quit, CheckMark::off, "q"});
    return menu;
}

// One line for each item, a submenu's indented.
std::vector<std::string> lines(const QMenu& menu, const std::string& indent = "") {
    std::vector<std::string> result;
    for (const QAction* const action : menu.actions()) {
        std::string line = indent + (action->isSeparator() ? "---" : action->text().toStdString());
        if (!action->isEnabled()) {
            line += " (disabled)";
        }
        if (action->isCheckable()) {
            line += action->isChecked() ? " (checked)" : " (unchecked)";
        }
        if (!action->shortcut().isEmpty()) {
            line += " [" + action->shortcut().toString().toStdString() + "]";
        }
        result.push_back(line);
        if (action->menu()) {
            const auto more = lines(*action->menu(), indent + "    ");
            result.insert(result.end(), more.begin(), more.end());
        }
    }
    return result;
}

QAction& find(const QMenu& menu, const QString& text) {
    for (QAction* const action : menu.actions()) {
        if (action->text() == text) {
            return *action;
        }
    }
    throw std::runtime_error("no such item");
}

std::vector<std::string> freshLines(const Menu& value) {
    RecordingTarget target;
    QtMenu menu(QtMenu::Reader::widgets);
    menu.show(value, target);
    return lines(menu.widget());
}

} // namespace

TEST_CASE("a menu shows its items in order, with their states, marks and shortcuts") {
    const Widgets widgets;
    CHECK(freshLines(sample({"No uploads"})) == std::vector<std::string>{
                                                    "Signed in: musician@example.org (disabled)",
                                                    "---",
                                                    "No uploads (disabled)",
                                                    "---",
                                                    "Settings",
                                                    "    Visibility: Private",
                                                    "        Private (checked)",
                                                    "        Live (for fans)",
                                                    "    ---",
                                                    "    Uninstall Cadora Helper…",
                                                    "Quit Cadora Helper [Ctrl+Q]",
                                                });
}

TEST_CASE("a menu that changes shows what a new one would") {
    const Widgets widgets;
    RecordingTarget target;
    QtMenu menu(QtMenu::Reader::widgets);
    const std::vector<Menu> values{
        sample({"No uploads"}),
        sample({"a.wav — staged", "b.wav — failed"}),
        sample({"b.wav — synced"}),
        {MenuCommand{"Sign in to Cadora…", MenuAction::signIn}, MenuSeparator{}},
        {},
        sample({}),
        {MenuSeparator{}, MenuSeparator{}, MenuInformation{"a"}, MenuSubmenu{"b", {}}},
        {MenuSubmenu{"b", {MenuInformation{"c"}}}, MenuInformation{"a"}},
        {MenuCommand{"x", MenuAction::quit, CheckMark::on}, MenuInformation{"a"}},
        {MenuCommand{"x", MenuAction::quit}, MenuInformation{"a"}},
    };
    for (const Menu& value : values) {
        menu.show(value, target);
        CHECK(lines(menu.widget()) == freshLines(value));
    }
}

TEST_CASE("a menu that is open stays open when it changes, and items that stay are the same ones") {
    Widgets widgets;
    RecordingTarget target;
    QtMenu menu(QtMenu::Reader::widgets);
    menu.show(sample({"a.wav — staged"}), target);
    menu.widget().popup(QPoint(10, 10));
    widgets.loop.runPending();
    const QAction* const quit = &find(menu.widget(), "Quit Cadora Helper");
    const QMenu* const settings = find(menu.widget(), "Settings").menu();
    menu.show(sample({"a.wav — uploaded", "b.wav — staged"}), target);
    widgets.loop.runPending();
    CHECK(menu.widget().isVisible());
    CHECK(&find(menu.widget(), "Quit Cadora Helper") == quit);
    CHECK(find(menu.widget(), "Settings").menu() == settings);
    // It has grown by the new line.
    CHECK(menu.widget().height() >= menu.widget().sizeHint().height());
    Widgets::savePicture(menu.widget(), "menu");
    menu.widget().close();
}

TEST_CASE("a command reaches the target, and a mark changes only with the value") {
    const Widgets widgets;
    RecordingTarget target;
    QtMenu menu(QtMenu::Reader::widgets);
    const Menu value{MenuCommand{"Show", MenuAction::toggleMenuBarIcon, CheckMark::on},
                     MenuCommand{"Live", MenuAction::setVisibilityLive}};
    menu.show(value, target);
    find(menu.widget(), "Show").trigger();
    find(menu.widget(), "Live").trigger();
    CHECK(target.performed == std::vector{MenuAction::toggleMenuBarIcon, MenuAction::setVisibilityLive});
    CHECK(lines(menu.widget()) == std::vector<std::string>{"Show (checked)", "Live"});
}

TEST_CASE("a command may take its own item away") {
    Widgets widgets;
    RecordingTarget target;
    QtMenu menu(QtMenu::Reader::widgets);
    menu.show({MenuCommand{"Sign Out", MenuAction::signOut}, MenuInformation{"a"}}, target);
    target.onPerform = [&] { menu.show({MenuInformation{"a"}}, target); };
    find(menu.widget(), "Sign Out").trigger();
    widgets.loop.runPending();
    CHECK(lines(menu.widget()) == std::vector<std::string>{"a (disabled)"});
}

TEST_CASE("a long name is drawn shortened in the middle, its state in sight, and whole in the tool tip") {
    const Widgets widgets;
    RecordingTarget target;
    QtMenu menu(QtMenu::Reader::widgets);
    const std::string whole = std::string(250, 'x') + ".wav — failed";
    menu.show({MenuInformation{whole}, MenuInformation{"a.wav — failed"}}, target);
    CHECK(menu.widget().actions()[0]->text().toStdString() ==
          std::string(32, 'x') + "…" + std::string(18, 'x') + ".wav — failed");
    CHECK(menu.widget().actions()[0]->toolTip().toStdString() == whole);
    CHECK(menu.widget().toolTipsVisible());
    menu.show({MenuInformation{"b.wav — failed"}}, target);
    CHECK(menu.widget().actions()[0]->toolTip() == "b.wav — failed");
}

TEST_CASE("file names with the letters that mark shortcuts are shown as they are") {
    const Widgets widgets;
    RecordingTarget target;
    QtMenu own(QtMenu::Reader::widgets);
    QtMenu panel(QtMenu::Reader::panel);
    const Menu value{MenuInformation{"Drum & Bass_1 & 2.wav"}, MenuInformation{"plain.wav"},
                     MenuInformation{"last&"}};
    own.show(value, target);
    panel.show(value, target);
    CHECK(own.widget().actions()[0]->text() == "Drum && Bass_1 && 2.wav");
    // The panel's test reads what arrives there of this.
    CHECK(panel.widget().actions()[0]->text() == "Drum && Bass__1 & 2.wav");
    CHECK(panel.widget().actions()[1]->text() == "plain.wav");
    CHECK(panel.widget().actions()[2]->text() == "last&");
}

} // namespace cadora::test
