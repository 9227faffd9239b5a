// What musl declares and macOS 13 lacks is taken away after musl's header was read: constants by #undef,
// functions by being declared anew as unavailable.
#pragma once

#define NOT_ON_MACOS __attribute__((unavailable("macOS 13 has no such function")))
