#pragma once

#include_next <stdio.h>

#define RENAME_EXCL 0x00000004

extern "C" int renamex_np(const char* from, const char* to, unsigned int flags);
