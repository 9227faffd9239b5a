#error "macOS has no <sys/fanotify.h>"
