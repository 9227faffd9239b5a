// error: use of undeclared identifier 'O_TMPFILE'
#include <fcntl.h>

int flags() {
    return O_TMPFILE | O_PATH;
}
