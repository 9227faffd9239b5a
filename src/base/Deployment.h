#pragma once

#include <string>

// Where this build of the program finds the service. Fixed when the program is built.
namespace cadora::deployment {

// Scheme, host and port, without a slash at the end.
std::string apiOrigin();
std::string siteOrigin();

} // namespace cadora::deployment
