#pragma once

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

namespace cadora {

// What the menu's commands ask for.
enum class MenuAction {
    signIn,
    syncNow,
    signOut,
    setVisibilityPrivate,
    setVisibilityLive,
    toggleMenuBarIcon,
    uninstall,
    quit,
};

struct MenuItem;

// A menu as a value: what to show, from top to bottom. A host renders it in one visit.
using Menu = std::vector<MenuItem>;

struct MenuSeparator {
    friend bool operator==(const MenuSeparator&, const MenuSeparator&) = default;
};

// How many characters of a title a host draws: a longer one is shortened in the middle and shown whole by its
// tool tip. Every title of the program's own is shorter.
inline constexpr std::size_t longestMenuTitle = 64;

// A disabled line that only tells something. Its title may hold a file's name.
struct MenuInformation {
    std::string title;

    friend bool operator==(const MenuInformation&, const MenuInformation&) = default;
};

enum class CheckMark { off, on };

struct MenuCommand {
    std::string title;
    MenuAction action;
    CheckMark checkMark = CheckMark::off;
    // A lower-case letter, pressed with the platform's usual modifier (Command or Control); empty for none.
    std::string keyEquivalent{};

    friend bool operator==(const MenuCommand&, const MenuCommand&) = default;
};

struct MenuSubmenu {
    std::string title;
    Menu menu;

    friend bool operator==(const MenuSubmenu&, const MenuSubmenu&);
};

struct MenuItem : std::variant<MenuSeparator, MenuInformation, MenuCommand, MenuSubmenu> {
    using variant::variant;
};

inline bool operator==(const MenuSubmenu& a, const MenuSubmenu& b) {
    return a.title == b.title && a.menu == b.menu;
}

// Receives the commands that the user chooses. Main actor only.
class MenuTarget {
public:
    virtual ~MenuTarget() = default;

    virtual void perform(MenuAction action) = 0;
};

} // namespace cadora
