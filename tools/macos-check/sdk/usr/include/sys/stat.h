#pragma once

// The members that macOS names otherwise, and the file's flags in place of musl's padding.
#define st_atim st_atimespec
#define st_mtim st_mtimespec
#define st_ctim st_ctimespec
#define __pad0 st_flags
#include_next <sys/stat.h>
#undef st_atim
#undef st_mtim
#undef st_ctim
#undef __pad0
#undef st_atime
#undef st_mtime
#undef st_ctime
#define st_atime st_atimespec.tv_sec
#define st_mtime st_mtimespec.tv_sec
#define st_ctime st_ctimespec.tv_sec

#include <not-on-macos.h>

#define UF_IMMUTABLE 0x00000002
#define UF_APPEND 0x00000004
#define SF_DATALESS 0x40000000

extern "C" {
int lchflags(const char* path, unsigned int flags);
struct statx;
int statx(int folder, const char* path, int flags, unsigned int mask, struct statx* status) NOT_ON_MACOS;
}
