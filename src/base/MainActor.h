#pragma once

#include "base/Task.h"

#include <coroutine>
#include <functional>
#include <memory>
#include <set>

namespace cadora {

// A task that runs by itself. Dropping the handle leaves the task running.
class StartedTask {
public:
    explicit StartedTask(std::shared_ptr<Cancellation> cancellation)
        : cancellation_(std::move(cancellation)) {}

    // Main actor only. The step that the task waits for is called off and ends with CancellationError; a
    // task that doesn't wait for anything notices at its next step. Does nothing once the task has ended.
    void cancel() { cancellation_->cancel(); }

private:
    std::shared_ptr<Cancellation> cancellation_;
};

// The thread on which all of the program's state changes: jobs run there one at a time, in the order in
// which they were posted. A host implements post() on its event loop; tests crank a queue by hand.
class MainActor {
public:
    MainActor() = default;
    MainActor(const MainActor&) = delete;
    MainActor& operator=(const MainActor&) = delete;
    virtual ~MainActor();

    // From any thread. The job never runs inside the call.
    virtual void post(std::function<void()> job) = 0;

    // Main actor only. Queues the task behind the jobs posted so far; it never runs inside the caller, so
    // tasks started in one turn all begin after that turn. The task must deal with its own errors: one that
    // escapes from it ends the program.
    StartedTask start(Task<void> task);

protected:
    // For destructors: ends every task that still waits, so that its completions find nobody.
    void destroyTasks();

private:
    struct Root;
    static Root runAsRoot(MainActor& actor, Task<void> task);

    std::set<void*> roots_;
};

} // namespace cadora
