// error: cannot initialize a variable of type 'NSStatusItem *
#import <AppKit/AppKit.h>

void make() {
    NSStatusItem* item = [NSStatusBar systemStatusBar];
    (void)item;
}
