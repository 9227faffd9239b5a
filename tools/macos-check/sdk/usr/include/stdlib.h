#pragma once

// It stands in another header there.
#define mkdtemp musls_mkdtemp
#include_next <stdlib.h>
#undef mkdtemp
#include <not-on-macos.h>

extern "C" {
char* secure_getenv(const char* name) NOT_ON_MACOS;
int clearenv(void) NOT_ON_MACOS;
void* reallocarray(void* memory, size_t count, size_t size) NOT_ON_MACOS;
}
