#pragma once

#include <filesystem>

namespace cadora::test {

/// Two PEM files.
struct TestCertificate {
    std::filesystem::path certificate;
    std::filesystem::path key;
};

/// Makes a key and a certificate for 127.0.0.1 that signs itself and is good for a day, in `folder`. Throws
/// std::runtime_error when it can't.
TestCertificate makeTestCertificate(const std::filesystem::path& folder);

} // namespace cadora::test
