// no error
#import <AppKit/AppKit.h>

int main() {
    NSUpdateDynamicServices();
    NSLog(@"%@", @"Every other file here fails for the reason that it names; this one must not fail.");
}
