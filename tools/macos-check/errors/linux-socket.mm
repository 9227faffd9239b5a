// error: use of undeclared identifier 'SOCK_CLOEXEC'
#include <sys/socket.h>

int kind() {
    return SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
}
