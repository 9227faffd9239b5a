#pragma once

#include <not-on-macos.h>
#include_next <poll.h>

#undef POLLRDHUP
#undef POLLMSG

extern "C" int ppoll(struct pollfd* watched, nfds_t count, const struct timespec* limit,
                     const sigset_t* mask) NOT_ON_MACOS;
