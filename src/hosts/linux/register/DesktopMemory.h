#pragma once

// What programs of the desktop keep in their own settings about this one. Nothing that fails here is
// reported: where such a program isn't there, there is nothing to forget.
namespace cadora {

// That the user switched the file manager's entry off.
void forgetNemoSwitch();

// That the panel has shown the status item. Only a panel's settings that are open now are looked at.
void forgetPanelItem();

} // namespace cadora
