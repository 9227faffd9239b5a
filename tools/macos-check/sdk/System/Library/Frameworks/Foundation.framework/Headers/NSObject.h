#pragma once

#include <stand-in.h>

#pragma clang assume_nonnull begin

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double CGFloat;
typedef double NSTimeInterval;
typedef struct _NSZone NSZone;

@protocol NSObject
- (BOOL)isEqual:(nullable id)object;
- (BOOL)isKindOfClass:(Class)aClass;
- (BOOL)respondsToSelector:(SEL)selector;
@property(readonly) NSUInteger hash;
@end

@protocol NSCopying
- (id)copyWithZone:(nullable NSZone*)zone;
@end

__attribute__((objc_root_class))
@interface NSObject<NSObject>
+ (instancetype)alloc;
+ (Class)class;
- (instancetype)init NS_DESIGNATED_INITIALIZER;
- (void)dealloc;
@end

#pragma clang assume_nonnull end
