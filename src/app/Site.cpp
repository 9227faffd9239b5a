#include "app/Site.h"

#include "base/Deployment.h"

namespace cadora {

std::string Site::domainName() {
    const auto site = url();
    return site ? site->authority() : "";
}

std::optional<URL> Site::url() {
    return URL::parse(deployment::siteOrigin());
}

} // namespace cadora
