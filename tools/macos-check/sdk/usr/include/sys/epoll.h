#error "macOS has no <sys/epoll.h>"
