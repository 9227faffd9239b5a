#pragma once

#include "base/MainActor.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace cadora::test {

// A main actor for tests with threads: turns run while the test waits for something.
class WaitingMainActor : public MainActor {
public:
    ~WaitingMainActor() override { destroyTasks(); }

    void post(std::function<void()> job) override {
        const std::lock_guard guard(mutex_);
        jobs_.push_back(std::move(job));
        posted_.notify_all();
    }

    // Runs turns until the condition, which is looked at between turns, holds. False when it still doesn't
    // after a time in which anything that works is long over.
    template <class Condition> bool runUntil(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            std::unique_lock lock(mutex_);
            // A condition may depend on other threads than those that post.
            posted_.wait_for(lock, std::chrono::milliseconds(5), [this] { return !jobs_.empty(); });
            if (!jobs_.empty()) {
                auto job = std::move(jobs_.front());
                jobs_.pop_front();
                lock.unlock();
                job();
            } else if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
        }
        return true;
    }

    // Runs the jobs that are there now and those that they post.
    void runPosted() {
        std::unique_lock lock(mutex_);
        while (!jobs_.empty()) {
            const auto job = std::move(jobs_.front());
            jobs_.pop_front();
            lock.unlock();
            job();
            lock.lock();
        }
    }

private:
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> jobs_;
};

} // namespace cadora::test
