// The sizes of the basic types are musl's; these are the ones whose type differs on the real system, where an
// overload or a format would be chosen by it.
#pragma once

typedef long long int64_t;
typedef unsigned long long uint64_t;
typedef long long off_t;
typedef unsigned short mode_t;
#define __DEFINED_int64_t
#define __DEFINED_uint64_t
#define __DEFINED_u_int64_t
#define __DEFINED_off_t
#define __DEFINED_mode_t
