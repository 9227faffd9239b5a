#pragma once

#include_next <sys/stat.h>

#define st_mtimespec st_mtim

extern "C" int lchflags(const char* path, unsigned int flags);
