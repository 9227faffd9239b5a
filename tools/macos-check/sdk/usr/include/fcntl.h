#pragma once

#include_next <fcntl.h>
#include <not-on-macos.h>

#define F_FULLFSYNC 51
#define F_BARRIERFSYNC 85

#undef O_PATH
#undef O_TMPFILE
#undef O_DIRECT
#undef O_NOATIME
#undef O_LARGEFILE
#undef O_RSYNC
#undef O_SEARCH
#undef O_EXEC
#undef O_ACCMODE
#define O_ACCMODE 3
#undef AT_EMPTY_PATH
#undef AT_NO_AUTOMOUNT
#undef F_SETPIPE_SZ
#undef F_GETPIPE_SZ
#undef F_ADD_SEALS
#undef F_GET_SEALS
#undef F_NOTIFY
#undef F_SETLEASE
#undef F_GETLEASE
#undef F_SETSIG
#undef F_GETSIG
#undef POSIX_FADV_NORMAL
#undef POSIX_FADV_RANDOM
#undef POSIX_FADV_SEQUENTIAL
#undef POSIX_FADV_WILLNEED
#undef POSIX_FADV_DONTNEED
#undef POSIX_FADV_NOREUSE
#undef fallocate64
#undef loff_t

extern "C" {
int fallocate(int descriptor, int mode, off_t offset, off_t length) NOT_ON_MACOS;
int posix_fallocate(int descriptor, off_t offset, off_t length) NOT_ON_MACOS;
int posix_fadvise(int descriptor, off_t offset, off_t length, int advice) NOT_ON_MACOS;
}
