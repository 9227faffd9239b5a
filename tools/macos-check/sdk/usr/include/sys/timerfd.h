#error "macOS has no <sys/timerfd.h>"
