#pragma once

#include "platform/BackgroundExecutor.h"

namespace cadora::test {

// Does the work at once, so that a trace is the same every time; its completion still waits for a turn.
class InlineBackgroundExecutor : public BackgroundExecutor {
public:
    void run(std::function<void()> job) override { job(); }
};

} // namespace cadora::test
