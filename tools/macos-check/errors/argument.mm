// error: cannot initialize a parameter of type 'NSURL * _Nonnull' with an lvalue of type 'NSString
#import <AppKit/AppKit.h>

void open(NSString* address) {
    [[NSWorkspace sharedWorkspace] openURL:address];
}
