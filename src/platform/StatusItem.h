#pragma once

#include "platform/Menu.h"
#include "platform/View.h"

#include <string>

namespace cadora {

// The program's item in the desktop's status bar. Main actor only.
class StatusItem {
public:
    virtual ~StatusItem() = default;

    // `symbolName` is the name of one of the platform's symbols; a host without it shows its own drawing of
    // it. A status item that has no button ignores this.
    virtual void setButton(const std::string& symbolName, const std::string& accessibilityDescription,
                           const std::string& toolTip) = 0;

    // Shows this menu from now on, also while it is open. The target must outlive the item.
    virtual void setMenu(Menu menu, MenuTarget& target) = 0;

    virtual void setVisibility(Visibility visibility) = 0;
};

} // namespace cadora
