#error "macOS has no <sys/sysinfo.h>"
