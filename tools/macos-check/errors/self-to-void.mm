// error: cannot initialize a variable of type 'void *' with an lvalue of type 'Target *
#import <Foundation/Foundation.h>

@interface Target : NSObject
@end

@implementation Target
- (void)keep {
    void* kept = self;
    (void)kept;
}
@end
