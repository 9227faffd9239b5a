#error "macOS has no <sys/sysmacros.h>"
