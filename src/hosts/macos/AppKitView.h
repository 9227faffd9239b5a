#pragma once

#include "platform/View.h"

#import <AppKit/AppKit.h>

// What the views' buttons call: one method for each action, by the action's name.
@interface CadoraViewTarget : NSObject
// The target must outlive this object.
- (instancetype)initWithTarget:(cadora::ViewTarget*)target NS_DESIGNATED_INITIALIZER;
- (instancetype)init NS_UNAVAILABLE;
- (void)signInTapped;
- (void)openCadoraSite;
@end

namespace cadora {

// The labels that change while the window is open, by their identifiers.
using IdentifiedLabels = NSMutableDictionary<NSString*, NSTextField*>;

// A content view with everything in it. Buttons keep their target weakly.
NSView* render(const ContentView& content, CadoraViewTarget* target, IdentifiedLabels* labels);

// Makes the field look as the label says.
void apply(const Label& label, NSTextField* field);

} // namespace cadora
