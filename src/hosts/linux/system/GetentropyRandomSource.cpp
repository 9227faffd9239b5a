#include "hosts/linux/system/GetentropyRandomSource.h"

#include <cstdlib>

#include <unistd.h>

namespace cadora {

std::uint64_t GetentropyRandomSource::next() {
    std::uint64_t value = 0;
    if (getentropy(&value, sizeof value) != 0) {
        std::abort();
    }
    return value;
}

} // namespace cadora
