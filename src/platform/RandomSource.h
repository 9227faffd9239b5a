#pragma once

#include <cstdint>

namespace cadora {

// The system's cryptographically secure random source. Any thread.
class RandomSource {
public:
    virtual ~RandomSource() = default;

    // Uniform over all 64-bit values. A system without randomness ends the program.
    virtual std::uint64_t next() = 0;
};

} // namespace cadora
