#error "macOS has no <sys/signalfd.h>"
