// error: no visible @interface for 'NSAlert' declares the selector 'runModel'
#import <AppKit/AppKit.h>

long answer(NSAlert* alert) {
    return [alert runModel];
}
