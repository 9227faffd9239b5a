// no error
#import <AppKit/AppKit.h>
#include <os/log.h>

int main() {
    NSUpdateDynamicServices();
    os_log(OS_LOG_DEFAULT, "%{public}s",
           "Every other file here fails for the reason that it names; this one must not fail.");
}
