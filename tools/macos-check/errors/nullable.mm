// error: implicit conversion from nullable pointer 'NSURL * _Nullable' to non-nullable pointer type 'NSURL *
// _Nonnull'
#import <AppKit/AppKit.h>

void open(NSString* address) {
    [[NSWorkspace sharedWorkspace] openURL:[NSURL URLWithString:address]];
}
