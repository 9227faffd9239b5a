// error: capturing 'self' strongly in this block is likely to lead to a retain cycle
#import <Foundation/Foundation.h>

@interface Controller : NSObject
@property(copy) void (^handler)(void);
@end

@implementation Controller
- (void)begin {
    self.handler = ^{
      [self begin];
    };
}
@end
