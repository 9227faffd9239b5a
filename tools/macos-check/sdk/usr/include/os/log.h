#pragma once

#include <stand-in.h>

// The real ones are an object and a macro.
typedef struct os_log_s* os_log_t;
extern "C" struct os_log_s _os_log_default;
#define OS_LOG_DEFAULT (&_os_log_default)

FUNCTION void os_log(os_log_t log, const char* format, ...) __attribute__((format(os_log, 2, 3)))
SINCE(10.12);
