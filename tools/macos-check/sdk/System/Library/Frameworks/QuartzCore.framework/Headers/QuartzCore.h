#pragma once

#import <Foundation/Foundation.h>

typedef struct CGColor* CGColorRef;

SINCE(10.5)
@interface CALayer : NSObject
@property(nullable) CGColorRef backgroundColor;
@property CGFloat cornerRadius;
@end
