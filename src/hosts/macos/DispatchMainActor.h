#pragma once

#include "base/MainActor.h"

#include <functional>
#include <memory>

namespace cadora {

// The main actor on the main dispatch queue, which the main thread's run loop serves in its common modes:
// also while a menu is open or an alert runs, but not while one of its own jobs runs. Destroying the actor
// ends every task and drops the jobs that have not begun; whoever posts from another thread must have ended
// before.
class DispatchMainActor : public MainActor {
public:
    DispatchMainActor();
    ~DispatchMainActor() override;

    void post(std::function<void()> job) override;

private:
    class Jobs;

    std::shared_ptr<Jobs> jobs_;
};

} // namespace cadora
