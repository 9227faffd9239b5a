// The words that the stand-in declarations are written in.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#define SINCE(version) __attribute__((availability(macos, introduced = version)))
#define NS_UNAVAILABLE __attribute__((unavailable))
#define NS_DESIGNATED_INITIALIZER __attribute__((objc_designated_initializer))
#define NS_REQUIRES_NIL_TERMINATION __attribute__((sentinel(0, 1)))
#define NS_FORMAT_FUNCTION(text, first) __attribute__((format(__NSString__, text, first)))
#define NS_NOESCAPE __attribute__((noescape))
#define NS_ENUM(type, name)                                                                                  \
    enum name : type name;                                                                                   \
    enum __attribute__((enum_extensibility(open))) name : type
// In C++ a set of options is an integer, so that options can be joined with |.
#define NS_OPTIONS(type, name)                                                                               \
    type name;                                                                                               \
    enum : type
#define BRIDGED(type) __attribute__((objc_bridge(type)))
#define CF_CONSUMED __attribute__((cf_consumed))
#define CF_RETURNS_RETAINED __attribute__((cf_returns_retained))
#define FUNCTION extern "C"
#define CONSTANT(type, name) extern "C" type const name

typedef bool BOOL;
#define YES __objc_yes
#define NO __objc_no
#define nil nullptr
