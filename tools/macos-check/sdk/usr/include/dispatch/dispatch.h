#pragma once

#import <Foundation/NSObject.h>

#pragma clang assume_nonnull begin

@protocol OS_dispatch_object <NSObject>
@end
@protocol OS_dispatch_queue <OS_dispatch_object>
@end
@protocol OS_dispatch_source <OS_dispatch_object>
@end

typedef NSObject<OS_dispatch_object>* dispatch_object_t;
typedef NSObject<OS_dispatch_queue>* dispatch_queue_t;
typedef NSObject<OS_dispatch_source>* dispatch_source_t;
typedef void (^dispatch_block_t)(void);
typedef uint64_t dispatch_time_t;
typedef const struct dispatch_source_type_s* dispatch_source_type_t;

#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)

enum qos_class_t : unsigned int {
    QOS_CLASS_USER_INITIATED = 0x19,
    QOS_CLASS_DEFAULT = 0x15,
    QOS_CLASS_UTILITY = 0x11,
};

extern "C" struct dispatch_queue_s _dispatch_main_q;
CONSTANT(struct dispatch_source_type_s, _dispatch_source_type_timer);
#define DISPATCH_SOURCE_TYPE_TIMER (&_dispatch_source_type_timer)

inline dispatch_queue_t dispatch_get_main_queue() {
    return (__bridge dispatch_queue_t)(void*)&_dispatch_main_q;
}

FUNCTION dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
FUNCTION void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
FUNCTION void dispatch_resume(dispatch_object_t object);
FUNCTION dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
FUNCTION dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle,
                                                  uintptr_t mask, dispatch_queue_t _Nullable queue)
    __attribute__((ns_returns_retained));
FUNCTION void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t _Nullable handler);
FUNCTION void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval,
                                        uint64_t leeway);
FUNCTION void dispatch_source_cancel(dispatch_source_t source);

#pragma clang assume_nonnull end
