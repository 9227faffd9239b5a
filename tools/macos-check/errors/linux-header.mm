// error: macOS has no <sys/epoll.h>
#include <sys/epoll.h>
