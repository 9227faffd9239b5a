#pragma once

#include_next <sys/stat.h>

extern "C" int lchflags(const char* path, unsigned int flags);
