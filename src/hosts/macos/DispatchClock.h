#pragma once

#include "platform/Clock.h"

namespace cadora {

// The system's clock, and one dispatch timer on the main queue for each wait.
class DispatchClock : public Clock {
public:
    Date now() override;

    // Completes on the main queue, never within the call, and never before the duration has passed. Time in
    // which the computer sleeps does not count.
    CancelAction sleep(std::chrono::nanoseconds duration, Completion<std::monostate> completion) override;
};

} // namespace cadora
