#error "macOS has no <sys/sendfile.h>"
