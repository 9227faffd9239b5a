#pragma once

#include "base/URL.h"

#include <optional>
#include <string>

namespace cadora {

// The service's web site, as the user meets it. Fixed when the program is built. Any thread.
class Site {
public:
    Site() = delete;

    // What the user may type into a browser: the host, and the port if the origin names one. Empty when the
    // program was built with an origin that is no URL.
    static std::string domainName();

    // The origin alone; absent when the program was built with an origin that is no URL.
    static std::optional<URL> url();
};

} // namespace cadora
