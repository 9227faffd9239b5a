#pragma once

#include <string>

namespace cadora::test {

// Says that this machine lacks what the running test needs, so that it is counted as skipped and not as
// passed. The test returns by itself.
void skipTest(const std::string& reason);

} // namespace cadora::test
