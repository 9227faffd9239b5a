#pragma once

#include "base/MainActor.h"
#include "fakes/Trace.h"

#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace cadora::test {

// A main actor whose turns are cranked by hand.
class ManualMainActor : public MainActor {
public:
    Trace trace;

    ~ManualMainActor() override { destroyTasks(); }

    void post(std::function<void()> job) override {
        const std::lock_guard guard(mutex_);
        trace.add("post");
        jobs_.push_back(std::move(job));
    }

    // Runs the next job; false when there is none.
    bool runTurn() {
        std::function<void()> job;
        {
            const std::lock_guard guard(mutex_);
            if (jobs_.empty()) {
                return false;
            }
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
        return true;
    }

    void runUntilIdle() {
        while (runTurn()) {
        }
    }

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> jobs_;
};

} // namespace cadora::test
