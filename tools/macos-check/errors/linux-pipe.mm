// error: 'pipe2' is unavailable
#include <unistd.h>

int makePipe(int* ends) {
    return pipe2(ends, 0);
}
