#pragma once

#include "platform/BackgroundExecutor.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace cadora::test {

// Does the work at once, so that a trace is the same every time; its completion still waits for a turn.
class InlineBackgroundExecutor : public BackgroundExecutor {
public:
    void run(std::function<void()> job) override {
        if (holdsJobs) {
            held_.push_back(std::move(job));
        } else {
            job();
        }
    }

    // Jobs wait until runHeld(), as if the other thread were busy.
    bool holdsJobs = false;

    // How many there were.
    std::size_t runHeld() {
        const auto jobs = std::exchange(held_, {});
        for (const auto& job : jobs) {
            job();
        }
        return jobs.size();
    }

private:
    std::vector<std::function<void()>> held_;
};

} // namespace cadora::test
