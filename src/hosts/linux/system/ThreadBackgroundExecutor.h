#pragma once

#include "platform/BackgroundExecutor.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace cadora {

// Two threads that sleep until there is a job: one long step does not hold up the next, and nothing here
// needs more. Destroying the executor waits for the jobs that have begun and drops the others.
class ThreadBackgroundExecutor : public BackgroundExecutor {
public:
    ThreadBackgroundExecutor();
    ThreadBackgroundExecutor(const ThreadBackgroundExecutor&) = delete;
    ThreadBackgroundExecutor& operator=(const ThreadBackgroundExecutor&) = delete;
    ~ThreadBackgroundExecutor() override;

    void run(std::function<void()> job) override;

    // Waits for the jobs that have begun, and drops the others and all later ones. For the end of the
    // program, while what the jobs use still lives. Not from a job.
    void end();

private:
    void work();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    bool ending_ = false;
    std::array<std::thread, 2> threads_;
};

} // namespace cadora
