// link error: undefined symbol: NSBeep
#import <Foundation/Foundation.h>

FUNCTION void NSBeep(void);

int main() {
    NSBeep();
}
