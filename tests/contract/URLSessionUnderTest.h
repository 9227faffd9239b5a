#pragma once

#include "base/MainActor.h"
#include "platform/URLSession.h"

#include <memory>

namespace cadora::test {

// The host's URL session. Each test program that runs the contract defines it.
std::unique_ptr<URLSession> makeURLSession(MainActor& actor);

} // namespace cadora::test
