#include "hosts/linux/system/ThreadBackgroundExecutor.h"

#include <utility>

namespace cadora {

ThreadBackgroundExecutor::ThreadBackgroundExecutor() {
    for (std::thread& thread : threads_) {
        thread = std::thread([this] { work(); });
    }
}

ThreadBackgroundExecutor::~ThreadBackgroundExecutor() {
    end();
}

void ThreadBackgroundExecutor::end() {
    // What a job holds goes outside the lock: it may be anything.
    std::deque<std::function<void()>> dropped;
    {
        const std::lock_guard guard(mutex_);
        ending_ = true;
        dropped.swap(jobs_);
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

void ThreadBackgroundExecutor::run(std::function<void()> job) {
    {
        const std::lock_guard guard(mutex_);
        if (ending_) {
            return;
        }
        jobs_.push_back(std::move(job));
    }
    changed_.notify_one();
}

void ThreadBackgroundExecutor::work() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
        if (ending_) {
            return;
        }
        {
            const auto job = std::move(jobs_.front());
            jobs_.pop_front();
            lock.unlock();
            job();
        }
        lock.lock();
    }
}

} // namespace cadora
