#include "hosts/macos/DispatchMainActor.h"

#include <deque>
#include <mutex>
#include <utility>

#include <dispatch/dispatch.h>

namespace cadora {

// The jobs that wait, apart from the queue's blocks: a block can't be taken back, what it would run can.
class DispatchMainActor::Jobs {
public:
    void add(std::function<void()> job) {
        const std::lock_guard guard(mutex_);
        waiting_.push_back(std::move(job));
    }

    // A job has nobody to report to; the dispatch queue can't carry an exception any further.
    void runNext() noexcept {
        std::function<void()> job;
        {
            const std::lock_guard guard(mutex_);
            if (waiting_.empty()) {
                return;
            }
            job = std::move(waiting_.front());
            waiting_.pop_front();
        }
        @autoreleasepool {
            job();
        }
    }

    void dropAll() {
        std::deque<std::function<void()>> dropped;
        const std::lock_guard guard(mutex_);
        dropped.swap(waiting_);
    }

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> waiting_;
};

DispatchMainActor::DispatchMainActor() : jobs_(std::make_shared<Jobs>()) {}

DispatchMainActor::~DispatchMainActor() {
    destroyTasks();
    jobs_->dropAll();
}

void DispatchMainActor::post(std::function<void()> job) {
    const std::shared_ptr<Jobs> jobs = jobs_;
    jobs->add(std::move(job));
    dispatch_async(dispatch_get_main_queue(), ^{
      jobs->runNext();
    });
}

} // namespace cadora
