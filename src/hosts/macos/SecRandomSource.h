#pragma once

#include "platform/RandomSource.h"

namespace cadora {

// The Security framework's default random number generator.
class SecRandomSource : public RandomSource {
public:
    std::uint64_t next() override;
};

} // namespace cadora
