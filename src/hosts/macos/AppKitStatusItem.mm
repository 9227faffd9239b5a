#include "hosts/macos/AppKitStatusItem.h"

#include "hosts/macos/FoundationText.h"

namespace cadora {

AppKitStatusItem::AppKitStatusItem()
    : item_([[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength]),
      menu_([[NSMenu alloc] initWithTitle:@""]) {}

AppKitStatusItem::~AppKitStatusItem() {
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
    CadoraMenuTarget* const newTarget = [[CadoraMenuTarget alloc] initWithTarget:&target];
    // One menu for good: what is open changes while it is open.
    render(menu, menu_, newTarget);
    target_ = newTarget;
    item_.menu = menu_;
}

void AppKitStatusItem::setVisibility(Visibility visibility) {
    item_.visible = visibility == Visibility::visible;
}

} // namespace cadora
