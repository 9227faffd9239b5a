#include "base/MainActor.h"

namespace cadora {

// The outermost coroutine of a started task. It registers its frame with the actor for as long as it lives,
// and destroys itself at its end.
struct MainActor::Root {
    struct promise_type {
        promise_type(MainActor& owner, Task<void>&) : actor(owner) {
            actor.roots_.insert(handle().address());
        }
        promise_type(const promise_type&) = delete;
        promise_type& operator=(const promise_type&) = delete;
        ~promise_type() { actor.roots_.erase(handle().address()); }

        std::coroutine_handle<promise_type> handle() {
            return std::coroutine_handle<promise_type>::from_promise(*this);
        }
        Root get_return_object() { return Root{handle()}; }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        void unhandled_exception() const noexcept { std::terminate(); }

        MainActor& actor;
        std::shared_ptr<Cancellation> cancellation = std::make_shared<Cancellation>();
    };

    std::coroutine_handle<promise_type> handle;
};

MainActor::~MainActor() {
    destroyTasks();
}

MainActor::Root MainActor::runAsRoot(MainActor&, Task<void> task) {
    co_await std::move(task);
}

StartedTask MainActor::start(Task<void> task) {
    const auto handle = runAsRoot(*this, std::move(task)).handle;
    StartedTask started(handle.promise().cancellation);
    post([handle] { handle.resume(); });
    return started;
}

void MainActor::destroyTasks() {
    while (!roots_.empty()) {
        std::coroutine_handle<>::from_address(*roots_.begin()).destroy();
    }
}

} // namespace cadora
