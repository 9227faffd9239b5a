#include "contract/URLSessionUnderTest.h"

#include "hosts/linux/network/CurlURLSession.h"

namespace cadora::test {

std::unique_ptr<URLSession> makeURLSession(MainActor& actor) {
    return std::make_unique<CurlURLSession>(actor);
}

} // namespace cadora::test
