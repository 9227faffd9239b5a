// error: 'newest' is only available on macOS 14.0 or newer
#import <Foundation/Foundation.h>

FUNCTION void newest(void) SINCE(14.0);

void call() {
    newest();
}
