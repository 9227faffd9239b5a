#include "hosts/macos/AppKitStatusItem.h"

#include "hosts/macos/FoundationText.h"

namespace cadora {

AppKitStatusItem::AppKitStatusItem()
    : item_([[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength]),
      menu_([[NSMenu alloc] initWithTitle:@""]), target_([[CadoraMenuTarget alloc] init]) {
    item_.menu = menu_;
}

AppKitStatusItem::~AppKitStatusItem() {
    target_.menuTarget = nullptr;
    [[NSStatusBar systemStatusBar] removeStatusItem:item_];
}

void AppKitStatusItem::setButton(const std::string& symbolName, const std::string& accessibilityDescription,
                                 const std::string& toolTip) {
    NSStatusBarButton* const button = item_.button;
    button.image = [NSImage imageWithSystemSymbolName:nsString(symbolName)
                             accessibilityDescription:nsString(accessibilityDescription)];
    button.toolTip = nsString(toolTip);
}

void AppKitStatusItem::setMenu(Menu menu, MenuTarget& target) {
    // One menu and one target for good: what is open changes while it is open, and a command that makes the
    // menu anew is still at work in the target.
    target_.menuTarget = &target;
    render(menu, menu_, target_);
}

void AppKitStatusItem::setVisibility(Visibility visibility) {
    item_.visible = visibility == Visibility::visible;
}

} // namespace cadora
