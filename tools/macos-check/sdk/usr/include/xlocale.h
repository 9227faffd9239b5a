// What libc++ wants of the real system's locale functions and musl lacks. Only declared: nothing built here
// is run.
#pragma once

#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

typedef unsigned int __uint32_t;

enum : __uint32_t {
    _CTYPE_A = 0x00000100U,
    _CTYPE_C = 0x00000200U,
    _CTYPE_D = 0x00000400U,
    _CTYPE_G = 0x00000800U,
    _CTYPE_L = 0x00001000U,
    _CTYPE_P = 0x00002000U,
    _CTYPE_S = 0x00004000U,
    _CTYPE_U = 0x00008000U,
    _CTYPE_X = 0x00010000U,
    _CTYPE_B = 0x00020000U,
    _CTYPE_R = 0x00040000U,
};

extern "C" {
long long strtoll_l(const char* text, char** end, int base, locale_t locale);
unsigned long long strtoull_l(const char* text, char** end, int base, locale_t locale);
int sscanf_l(const char* text, locale_t locale, const char* format, ...);
int snprintf_l(char* buffer, size_t size, locale_t locale, const char* format, ...);
int asprintf_l(char** text, locale_t locale, const char* format, ...);
}
