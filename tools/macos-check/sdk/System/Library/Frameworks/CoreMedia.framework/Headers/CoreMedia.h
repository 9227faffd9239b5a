#pragma once

#import <CoreFoundation/CoreFoundation.h>

typedef struct {
    int64_t value;
    int32_t timescale;
    uint32_t flags;
    int64_t epoch;
} CMTime;

FUNCTION double CMTimeGetSeconds(CMTime time) SINCE(10.7);
