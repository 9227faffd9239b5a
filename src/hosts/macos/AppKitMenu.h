#pragma once

#include "platform/Menu.h"

#import <AppKit/AppKit.h>

// What the menu's items call: one method for each command, by the command's name.
@interface CadoraMenuTarget : NSObject
// Null drops the commands; another one must outlive this object.
@property cadora::MenuTarget* menuTarget;
- (void)signIn;
- (void)syncNow;
- (void)signOut;
- (void)setVisibilityPrivate;
- (void)setVisibilityLive;
- (void)toggleMenuBarIcon;
- (void)uninstall;
- (void)quit;
@end

namespace cadora {

// Empties the menu and fills it anew. Items keep their target weakly.
void render(const Menu& menu, NSMenu* into, CadoraMenuTarget* target);

} // namespace cadora
