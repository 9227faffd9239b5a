// error: format string is not a string literal
#import <Foundation/Foundation.h>

void log(NSString* line) {
    NSLog(line);
}
