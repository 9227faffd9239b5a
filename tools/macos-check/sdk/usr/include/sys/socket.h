#pragma once

#include <not-on-macos.h>
#include_next <sys/socket.h>

#undef SOCK_CLOEXEC
#undef SOCK_NONBLOCK
#undef SOCK_PACKET
#undef MSG_NOSIGNAL
#undef MSG_MORE
#undef MSG_CONFIRM
#undef MSG_ERRQUEUE
#undef MSG_CMSG_CLOEXEC
#undef MSG_WAITFORONE
#undef MSG_FASTOPEN
#undef SO_PEERCRED
#undef SO_PASSCRED
#undef SO_PEERSEC
#undef SO_DOMAIN
#undef SO_PROTOCOL
#undef SO_PRIORITY
#undef SO_BINDTODEVICE
#undef SO_SNDBUFFORCE
#undef SO_RCVBUFFORCE
#undef SO_BUSY_POLL
#undef SO_ZEROCOPY

extern "C" int accept4(int socket, struct sockaddr* address, socklen_t* length, int flags) NOT_ON_MACOS;
