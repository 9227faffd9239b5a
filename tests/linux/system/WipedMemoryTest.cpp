#include "hosts/linux/system/WipedMemory.h"

#include <doctest/doctest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace cadora::test {

TEST_CASE("memory that is wiped when it goes keeps its content while it is moved") {
    const std::string content(1000, 'x');
    auto* block = static_cast<char*>(reallocateWiped(nullptr, content.size()));
    REQUIRE(block != nullptr);
    std::memcpy(block, content.data(), content.size());
    block = static_cast<char*>(reallocateWiped(block, 100'000));
    CHECK(std::string(block, content.size()) == content);
    block = static_cast<char*>(reallocateWiped(block, 10));
    CHECK(std::string(block, 10) == content.substr(0, 10));
    releaseWiped(block);
    releaseWiped(nullptr);
}

} // namespace cadora::test
