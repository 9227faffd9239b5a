#pragma once

#include <stand-in.h>

#pragma clang assume_nonnull begin

typedef const void* CFTypeRef;
typedef unsigned long CFTypeID;
typedef unsigned char Boolean;
typedef signed int OSStatus;

typedef const struct BRIDGED(NSString) __CFString* CFStringRef;
typedef const struct BRIDGED(NSNumber) __CFNumber* CFNumberRef;
typedef const struct BRIDGED(NSNumber) __CFBoolean* CFBooleanRef;
typedef const struct BRIDGED(NSDictionary) __CFDictionary* CFDictionaryRef;
typedef struct BRIDGED(id) __CFRunLoop* CFRunLoopRef;
typedef CFStringRef CFRunLoopMode;

FUNCTION CFTypeRef CFAutorelease(CFTypeRef CF_CONSUMED object) SINCE(10.9);
FUNCTION CFTypeID CFGetTypeID(CFTypeRef object);
FUNCTION CFTypeID CFBooleanGetTypeID(void);
FUNCTION Boolean CFNumberIsFloatType(CFNumberRef number);

CONSTANT(CFRunLoopMode, kCFRunLoopDefaultMode);
CONSTANT(CFRunLoopMode, kCFRunLoopCommonModes);
FUNCTION CFRunLoopRef CFRunLoopGetMain(void);
FUNCTION void CFRunLoopPerformBlock(CFRunLoopRef runLoop, CFTypeRef mode, void (^block)(void)) SINCE(10.6);
FUNCTION void CFRunLoopWakeUp(CFRunLoopRef runLoop);
typedef double CFTimeInterval;
typedef signed int CFRunLoopRunResult;
FUNCTION CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                               Boolean returnAfterSourceHandled);

#pragma clang assume_nonnull end
