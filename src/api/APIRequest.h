#pragma once

#include "platform/URLSession.h"

#include <string>

namespace cadora {

// A call of the service's API: POST of a JSON body to a fixed path below the API's origin, without
// credentials yet.
URLRequest apiRequest(const std::string& path, std::string body);

} // namespace cadora
