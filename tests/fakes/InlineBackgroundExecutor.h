#pragma once

#include "platform/BackgroundExecutor.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace cadora::test {

// Does the work at once, so that a trace is the same every time; its completion still waits for a turn.
class InlineBackgroundExecutor : public BackgroundExecutor {
public:
    // Called before and after each job.
    std::function<void(bool isRunning)> onRun = [](bool) {};

    void run(std::function<void()> job) override {
        if (holdsJobs) {
            held_.push_back(std::move(job));
        } else {
            perform(job);
        }
    }

    // Jobs wait until runHeld(), as if the other thread were busy.
    bool holdsJobs = false;

    // How many there were.
    std::size_t runHeld() {
        const auto jobs = std::exchange(held_, {});
        for (const auto& job : jobs) {
            perform(job);
        }
        return jobs.size();
    }

private:
    void perform(const std::function<void()>& job) {
        onRun(true);
        job();
        onRun(false);
    }

    std::vector<std::function<void()>> held_;
};

} // namespace cadora::test
