// error: cannot initialize a parameter of type 'NSLayoutAnchor<NSLayoutXAxisAnchor *> *
#import <AppKit/AppKit.h>

void constrain(NSView* inner, NSView* outer) {
    [inner.leadingAnchor constraintEqualToAnchor:outer.topAnchor constant:32];
}
