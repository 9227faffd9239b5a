#include "hosts/macos/AppKitMenu.h"

#include "base/UTF8.h"
#include "hosts/macos/FoundationText.h"

@implementation CadoraMenuTarget

- (void)perform:(cadora::MenuAction)action {
    if (self.menuTarget != nullptr) {
        self.menuTarget->perform(action);
    }
}

- (void)signIn {
    [self perform:cadora::MenuAction::signIn];
}

- (void)syncNow {
    [self perform:cadora::MenuAction::syncNow];
}

- (void)signOut {
    [self perform:cadora::MenuAction::signOut];
}

- (void)setVisibilityPrivate {
    [self perform:cadora::MenuAction::setVisibilityPrivate];
}

- (void)setVisibilityLive {
    [self perform:cadora::MenuAction::setVisibilityLive];
}

- (void)toggleMenuBarIcon {
    [self perform:cadora::MenuAction::toggleMenuBarIcon];
}

- (void)uninstall {
    [self perform:cadora::MenuAction::uninstall];
}

- (void)quit {
    [self perform:cadora::MenuAction::quit];
}

@end

namespace cadora {

namespace {

SEL selectorOf(MenuAction action) {
    switch (action) {
    case MenuAction::signIn:
        return @selector(signIn);
    case MenuAction::syncNow:
        return @selector(syncNow);
    case MenuAction::signOut:
        return @selector(signOut);
    case MenuAction::setVisibilityPrivate:
        return @selector(setVisibilityPrivate);
    case MenuAction::setVisibilityLive:
        return @selector(setVisibilityLive);
    case MenuAction::toggleMenuBarIcon:
        return @selector(toggleMenuBarIcon);
    case MenuAction::uninstall:
        return @selector(uninstall);
    case MenuAction::quit:
        return @selector(quit);
    }
    return nullptr;
}

NSMenuItem* makeItem(const std::string& title, SEL action, const std::string& keyEquivalent) {
    return [[NSMenuItem alloc] initWithTitle:nsString(title)
                                      action:action
                               keyEquivalent:nsString(keyEquivalent)];
}

struct Renderer {
    CadoraMenuTarget* target;

    NSMenuItem* operator()(const MenuSeparator&) const { return [NSMenuItem separatorItem]; }

    NSMenuItem* operator()(const MenuInformation& information) const {
        const std::string drawn = shortenedInTheMiddle(information.title, longestMenuTitle);
        NSMenuItem* const item = makeItem(drawn, nullptr, "");
        item.toolTip = drawn == information.title ? nil : nsString(information.title);
        item.enabled = NO;
        return item;
    }

    NSMenuItem* operator()(const MenuCommand& command) const {
        NSMenuItem* const item = makeItem(command.title, selectorOf(command.action), command.keyEquivalent);
        item.target = target;
        item.state = command.checkMark == CheckMark::on ? NSControlStateValueOn : NSControlStateValueOff;
        return item;
    }

    NSMenuItem* operator()(const MenuSubmenu& submenu) const {
        NSMenuItem* const item = makeItem(submenu.title, nullptr, "");
        NSMenu* const menu = [[NSMenu alloc] initWithTitle:nsString(submenu.title)];
        render(submenu.menu, menu, target);
        item.submenu = menu;
        return item;
    }
};

} // namespace

void render(const Menu& menu, NSMenu* into, CadoraMenuTarget* target) {
    [into removeAllItems];
    // Which items can be chosen is said by the value alone, also while an alert runs.
    into.autoenablesItems = NO;
    for (const MenuItem& item : menu) {
        [into addItem:std::visit(Renderer{target}, static_cast<const MenuItem::variant&>(item))];
    }
}

} // namespace cadora
