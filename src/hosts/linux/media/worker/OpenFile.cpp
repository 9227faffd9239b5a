#include "hosts/linux/media/worker/OpenFile.h"

#include "hosts/linux/media/worker/ExportError.h"

#include <cerrno>
#include <sys/stat.h>

namespace cadora {

namespace {

// 0, or the error number that says what is wrong.
int examine(int descriptor, OpenFile& file) {
    struct stat status{};
    if (fstat(descriptor, &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    file = {descriptor, status.st_size};
    return 0;
}

} // namespace

OpenFile OpenFile::source(int descriptor) {
    OpenFile file;
    if (const int failed = examine(descriptor, file)) {
        throw unreadable(failed);
    }
    return file;
}

OpenFile OpenFile::output(int descriptor) {
    OpenFile file;
    if (const int failed = examine(descriptor, file)) {
        throw cannotWrite(failed);
    }
    return file;
}

} // namespace cadora
