#error "macOS has no <sys/inotify.h>"
