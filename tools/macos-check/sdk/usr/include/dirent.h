#pragma once

#include_next <dirent.h>
#include <not-on-macos.h>

extern "C" int versionsort(const struct dirent** one, const struct dirent** other) NOT_ON_MACOS;
