#pragma once

#include "platform/Clock.h"
#include "sharing/SharedWork.h"

#include <chrono>
#include <cstdint>
#include <utility>

namespace cadora {

// A clock in which those who begin to wait in the same round, and equally long, end in the same round, too.
class SharedClock : public Clock {
public:
    SharedClock(Clock& clock, const std::shared_ptr<Rounds>& rounds);

    Date now() override;
    CancelAction sleep(std::chrono::nanoseconds duration, Completion<std::monostate> completion) override;

private:
    using Wait = std::pair<std::uint64_t, std::chrono::nanoseconds>; // since which round, how long
    using Waits = SharedWorks<Wait, std::monostate>;

    Clock& clock_;
    std::shared_ptr<Rounds> rounds_;
    Waits waits_;
};

} // namespace cadora
