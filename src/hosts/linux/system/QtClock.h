#pragma once

#include "platform/Clock.h"

#include <QObject>

namespace cadora {

// The system's clock, and one single-shot timer of Qt's event loop for each wait: nothing ticks in between.
// Destroying the clock calls off the waits.
class QtClock : public Clock {
public:
    Date now() override;

    // Completes on the event loop, never within the call, and never before the duration has passed.
    CancelAction sleep(std::chrono::nanoseconds duration, Completion<std::monostate> completion) override;

private:
    QObject sleeps_;
};

} // namespace cadora
