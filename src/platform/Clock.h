#pragma once

#include "base/Completion.h"
#include "base/Date.h"

#include <chrono>
#include <variant>

namespace cadora {

// The wall clock, and waits that hold no thread. Main actor only.
class Clock {
public:
    virtual ~Clock() = default;

    virtual Date now() = 0;

    // Completes once, after the duration has passed; never fails.
    virtual CancelAction sleep(std::chrono::nanoseconds duration, Completion<std::monostate> completion) = 0;
};

} // namespace cadora
