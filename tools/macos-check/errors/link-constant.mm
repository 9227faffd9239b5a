// link error: undefined symbol: kSecAttrLabel
#import <Security/Security.h>

CONSTANT(CFStringRef, kSecAttrLabel);

int main() {
    return kSecAttrLabel == nullptr;
}
