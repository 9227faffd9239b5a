#include "hosts/macos/SecRandomSource.h"

#include <cstdlib>

#import <Security/Security.h>

namespace cadora {

std::uint64_t SecRandomSource::next() {
    std::uint64_t value = 0;
    if (SecRandomCopyBytes(kSecRandomDefault, sizeof value, &value) != errSecSuccess) {
        std::abort();
    }
    return value;
}

} // namespace cadora
