#pragma once

#include <not-on-macos.h>
#include_next <string.h>

#undef strdupa
#undef strndupa

extern "C" {
void* memrchr(const void* memory, int byte, size_t size) NOT_ON_MACOS;
void* mempcpy(void* to, const void* from, size_t size) NOT_ON_MACOS;
char* strchrnul(const char* text, int character) NOT_ON_MACOS;
int strverscmp(const char* one, const char* other) NOT_ON_MACOS;
void explicit_bzero(void* memory, size_t size) NOT_ON_MACOS;
}
