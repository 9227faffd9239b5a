#pragma once

#include "base/MainActor.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace cadora::test {

// A main actor on the test's own thread, for what other threads and processes bring to an end.
class WaitingMainActor : public MainActor {
public:
    ~WaitingMainActor() override { destroyTasks(); }

    void post(std::function<void()> job) override {
        {
            const std::lock_guard guard(mutex_);
            jobs_.push_back(std::move(job));
        }
        posted_.notify_one();
    }

    // Runs jobs, sleeping when there is none, until the condition holds; false if it never does.
    template <class Condition> bool runUntil(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            std::unique_lock lock(mutex_);
            if (!posted_.wait_until(lock, deadline, [&] { return !jobs_.empty(); })) {
                return false;
            }
            const auto job = std::move(jobs_.front());
            jobs_.pop_front();
            lock.unlock();
            job();
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
