// error: incompatible pointer types assigning to 'id<NSWindowDelegate>
#import <AppKit/AppKit.h>

void follow(NSWindow* window, NSObject* delegate) {
    window.delegate = delegate;
}
