// link error: undefined symbol: OBJC_CLASS_$_NSSpeechSynthesizer
#import <Foundation/Foundation.h>

@interface NSSpeechSynthesizer : NSObject
@end

int main() {
    return [NSSpeechSynthesizer class] == nil;
}
