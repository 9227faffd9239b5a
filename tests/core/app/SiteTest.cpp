#include "app/Site.h"

#include "base/Deployment.h"

#include <doctest/doctest.h>

using namespace cadora;

TEST_CASE("the site's address is its origin and nothing more") {
    const auto url = Site::url();
    REQUIRE(url);
    CHECK(url->text() == deployment::siteOrigin());
}

TEST_CASE("the site's domain name is its address without the scheme") {
    const std::string domain = Site::domainName();
    CHECK_FALSE(domain.empty());
    CHECK(Site::url()->scheme() + "://" + domain == deployment::siteOrigin());
}
