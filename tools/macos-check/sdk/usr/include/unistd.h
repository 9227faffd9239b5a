#pragma once

#define environ musls_environ
#include_next <unistd.h>
#undef environ
#include <not-on-macos.h>

extern "C" {
char* mkdtemp(char* pattern);
int pipe2(int* ends, int flags) NOT_ON_MACOS;
int dup3(int from, int to, int flags) NOT_ON_MACOS;
int execvpe(const char* file, char* const* arguments, char* const* variables) NOT_ON_MACOS;
int eaccess(const char* path, int mode) NOT_ON_MACOS;
int euidaccess(const char* path, int mode) NOT_ON_MACOS;
int fdatasync(int descriptor) NOT_ON_MACOS;
int syncfs(int descriptor) NOT_ON_MACOS;
char* get_current_dir_name(void) NOT_ON_MACOS;
pid_t gettid(void) NOT_ON_MACOS;
ssize_t copy_file_range(int from, off_t* fromOffset, int to, off_t* toOffset, size_t size,
                        unsigned flags) NOT_ON_MACOS;
}
