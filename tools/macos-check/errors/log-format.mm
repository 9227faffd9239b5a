// error: format specifies type
#include <os/log.h>

void show(int number) {
    os_log(OS_LOG_DEFAULT, "%{public}s", number);
}
