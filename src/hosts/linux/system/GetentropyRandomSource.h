#pragma once

#include "platform/RandomSource.h"

namespace cadora {

// The kernel's random source.
class GetentropyRandomSource : public RandomSource {
public:
    std::uint64_t next() override;
};

} // namespace cadora
