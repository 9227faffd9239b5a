// error: property 'tooltip' not found on object of type 'NSStatusBarButton *'
#import <AppKit/AppKit.h>

void name(NSStatusBarButton* button) {
    button.tooltip = @"Cadora Helper";
}
