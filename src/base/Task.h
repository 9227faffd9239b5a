#pragma once

#include "base/Cancellation.h"

#include <coroutine>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>
#include <variant>

namespace cadora {

// What every promise of this house has: who waits for it, and the cancellation of the task it is part of.
struct PromiseBase {
    struct FinalAwaiter {
        bool await_ready() const noexcept { return false; }
        template <class Promise> void await_suspend(std::coroutine_handle<Promise> finished) const noexcept {
            // The waiter may destroy this frame, so that nothing of it is touched afterwards.
            if (!finished.promise().isBeginning) {
                finished.promise().waiter.resume();
            }
        }
        void await_resume() const noexcept {}
    };

    std::suspend_always initial_suspend() const noexcept { return {}; }
    FinalAwaiter final_suspend() const noexcept { return {}; }

    std::coroutine_handle<> waiter = std::noop_coroutine();
    std::shared_ptr<Cancellation> cancellation;
    // While its waiter is still within the call that began it, and goes on by itself when that returns.
    bool isBeginning = false;
};

// The part of a promise that knows the type of the result.
template <class T> struct PromiseResult : PromiseBase {
    template <class U> void return_value(U&& value) { result.template emplace<1>(std::forward<U>(value)); }
    void unhandled_exception() { result.template emplace<2>(std::current_exception()); }

    T take() {
        if (result.index() == 2) {
            std::rethrow_exception(std::get<2>(result));
        }
        return std::move(std::get<1>(result));
    }

    std::variant<std::monostate, T, std::exception_ptr> result;
};

template <> struct PromiseResult<void> : PromiseBase {
    void return_void() const noexcept {}
    void unhandled_exception() { error = std::current_exception(); }

    void take() const {
        if (error) {
            std::rethrow_exception(error);
        }
    }

    std::exception_ptr error;
};

// A piece of asynchronous work on the main actor. Lazy: nothing happens before it is awaited or started
// with MainActor::start(). The Task owns its frame: destroying it while it waits destroys the frame, and a
// completion that comes later finds nobody and does nothing. Tasks awaited within one another take stack, but
// any number of them awaited one after the other takes none. Parameters of a coroutine are taken by value,
// since the caller's variables may be gone when it runs.
template <class T = void> class [[nodiscard]] Task {
public:
    struct promise_type : PromiseResult<T> {
        Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
    };

    class Awaiter {
    public:
        explicit Awaiter(std::coroutine_handle<promise_type> task) : task_(task) {}

        bool await_ready() const noexcept { return false; }
        template <class Promise> bool await_suspend(std::coroutine_handle<Promise> parent) const noexcept {
            promise_type& promise = task_.promise();
            promise.waiter = parent;
            promise.cancellation = parent.promise().cancellation;
            promise.isBeginning = true;
            task_.resume();
            promise.isBeginning = false;
            return !task_.done();
        }
        T await_resume() const { return task_.promise().take(); }

    private:
        std::coroutine_handle<promise_type> task_;
    };

    Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Task& operator=(Task&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Task() {
        if (handle_) {
            handle_.destroy();
        }
    }

    // Runs the task within the awaiting one and yields its result, or rethrows what it threw.
    Awaiter operator co_await() && noexcept { return Awaiter(handle_); }

private:
    explicit Task(std::coroutine_handle<promise_type> handle) : handle_(handle) {}

    std::coroutine_handle<promise_type> handle_;
};

} // namespace cadora
