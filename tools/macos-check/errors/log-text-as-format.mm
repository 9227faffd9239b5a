// error: format string is not a string literal
#include <os/log.h>

void show(const char* text) {
    os_log(OS_LOG_DEFAULT, text);
}
