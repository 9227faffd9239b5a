// Loaded before the C library, makes this system's files as particular as those of a Mac: names are UTF-8,
// and there is no folder of the kernel's.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace {

bool isUTF8(std::string_view text) {
    std::size_t continuing = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const bool continues = (byte & 0xC0) == 0x80;
        if (continues != (continuing > 0)) {
            return false;
        }
        if (continues) {
            --continuing;
        } else {
            continuing = byte < 0x80 ? 0 : byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
        }
    }
    return continuing == 0;
}

/// What a Mac would answer to the path at once, 0 when it would look for the file.
int refusal(const char* path) {
    if (!isUTF8(path)) {
        return EILSEQ;
    }
    return std::string_view(path).starts_with("/proc/") ? ENOENT : 0;
}

bool refuses(const char* path) {
    const int code = refusal(path);
    if (code != 0) {
        errno = code;
    }
    return code != 0;
}

template <class Function> Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

mode_t modeOf(int flags, va_list rest) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(rest, unsigned)) : 0;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, rest);
    va_end(rest);
    return refuses(path) ? -1 : next<int(const char*, int, mode_t)>("open")(path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, rest);
    va_end(rest);
    return refuses(path) ? -1 : next<int(int, const char*, int, mode_t)>("openat")(folder, path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
    return refuses(path) ? nullptr : next<FILE*(const char*, const char*)>("fopen")(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    return refuses(path) ? nullptr : next<FILE*(const char*, const char*)>("fopen64")(path, mode);
}

int stat(const char* path, struct stat* status) {
    return refuses(path) ? -1 : next<int(const char*, struct stat*)>("stat")(path, status);
}

int access(const char* path, int mode) {
    return refuses(path) ? -1 : next<int(const char*, int)>("access")(path, mode);
}
}
