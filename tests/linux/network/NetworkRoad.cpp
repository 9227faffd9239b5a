#include "linux/network/NetworkRoad.h"

#include "base/Deployment.h"

namespace cadora {

namespace {

std::string& origin() {
    static std::string text;
    return text;
}

} // namespace

void test::setAPIOrigin(const std::string& text) {
    origin() = text;
}

std::string deployment::apiOrigin() {
    return origin();
}
std::string deployment::siteOrigin() {
    return origin();
}

} // namespace cadora
