// error: no member named 'st_mtim' in 'stat'
#include <sys/stat.h>

long changedAt(const struct stat& status) {
    return status.st_mtim.tv_nsec;
}
