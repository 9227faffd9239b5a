#pragma once

#include <not-on-macos.h>
#include_next <time.h>

#undef CLOCK_BOOTTIME
#undef CLOCK_MONOTONIC_COARSE
#undef CLOCK_REALTIME_COARSE
#undef CLOCK_TAI
#undef TIMER_ABSTIME

extern "C" {
int clock_nanosleep(clockid_t clock, int flags, const struct timespec* wanted,
                    struct timespec* left) NOT_ON_MACOS;
int timer_create(clockid_t clock, struct sigevent* event, timer_t* timer) NOT_ON_MACOS;
}
