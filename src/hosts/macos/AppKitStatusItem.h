#pragma once

#include "hosts/macos/AppKitMenu.h"
#include "platform/StatusItem.h"

#import <AppKit/AppKit.h>

namespace cadora {

// An item of variable length in the system's menu bar; it leaves the bar with this object.
class AppKitStatusItem : public StatusItem {
public:
    AppKitStatusItem();
    AppKitStatusItem(const AppKitStatusItem&) = delete;
    AppKitStatusItem& operator=(const AppKitStatusItem&) = delete;
    ~AppKitStatusItem() override;

    void setButton(const std::string& symbolName, const std::string& accessibilityDescription,
                   const std::string& toolTip) override;
    void setMenu(Menu menu, MenuTarget& target) override;
    void setVisibility(Visibility visibility) override;

private:
    NSStatusItem* item_;
    NSMenu* menu_;
    CadoraMenuTarget* target_;
};

} // namespace cadora
