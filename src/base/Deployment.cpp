#include "base/Deployment.h"

namespace cadora::deployment {

std::string apiOrigin() {
    return CADORA_API_ORIGIN;
}
std::string siteOrigin() {
    return CADORA_SITE_ORIGIN;
}

} // namespace cadora::deployment
