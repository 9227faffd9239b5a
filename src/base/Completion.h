#pragma once

#include "base/Error.h"
#include "base/MainActor.h"

#include <cassert>
#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

namespace cadora {

// How an asynchronous operation of the platform ended: with its value or with its error.
template <class T> using Result = std::variant<T, std::exception_ptr>;

template <class T, class E> Result<T> failure(E error) {
    return std::make_exception_ptr(std::move(error));
}

// What an asynchronous operation calls when it ends: once, on the main actor.
template <class T> using Completion = std::function<void(Result<T>)>;

// Calls off an operation that is under way: it stops as soon as it can, and a completion that it still
// calls is ignored. Empty for an operation that can't be called off. Main actor only.
using CancelAction = std::function<void()>;

// Begins an operation and says how to call it off.
template <class T> using Operation = std::function<CancelAction(Completion<T>)>;

// Suspends the awaiting task until the operation has completed, and yields its value or throws its error.
// If the task is cancelled first, the operation is called off and CancellationError is thrown; a task that
// is cancelled already does not begin the operation. If the task is destroyed, the operation is called off.
template <class T> class [[nodiscard]] OperationAwaiter {
public:
    OperationAwaiter(MainActor& actor, Operation<T> operation)
        : actor_(actor), operation_(std::move(operation)), state_(std::make_shared<State>()) {}
    OperationAwaiter(OperationAwaiter&&) = delete;
    OperationAwaiter& operator=(OperationAwaiter&&) = delete;

    ~OperationAwaiter() {
        state_->waiter = nullptr;
        state_->callOff();
    }

    bool await_ready() const noexcept { return false; }

    template <class Promise> bool await_suspend(std::coroutine_handle<Promise> waiter) {
        const std::shared_ptr<Cancellation> cancellation = waiter.promise().cancellation;
        if (cancellation->isCancelled()) {
            state_->end(failure<T>(CancellationError()));
            return false;
        }
        CancelAction cancel = operation_([state = state_](Result<T> result) {
            // It may hold what is calling here, and goes when that has been told.
            const CancelAction useless = std::exchange(state->cancel, nullptr);
            if (state->end(std::move(result))) {
                state->resume();
            }
        });
        if (state_->result) {
            return false;
        }
        state_->waiter = waiter;
        state_->cancel = std::move(cancel);
        state_->cancellation = cancellation;
        cancellation->setHandler([state = state_, &actor = actor_] {
            state->callOff();
            actor.post([state] { state->resume(); });
        });
        return true;
    }

    T await_resume() {
        Result<T>& result = *state_->result;
        if (auto* error = std::get_if<std::exception_ptr>(&result)) {
            std::rethrow_exception(*error);
        }
        return std::move(std::get<T>(result));
    }

private:
    struct State {
        // False when the operation has ended before. From then on the task's cancellation leaves it alone.
        bool end(Result<T> how) {
            if (result) {
                return false;
            }
            result = std::move(how);
            if (const auto waitedWith = std::exchange(cancellation, nullptr)) {
                waitedWith->setHandler(nullptr);
            }
            return true;
        }

        void callOff() {
            const CancelAction action = std::exchange(cancel, nullptr);
            if (end(failure<T>(CancellationError())) && action) {
                action();
            }
        }

        void resume() {
            if (const auto suspended = std::exchange(waiter, nullptr)) {
                suspended.resume();
            }
        }

        std::optional<Result<T>> result;
        std::coroutine_handle<> waiter;
        CancelAction cancel;
        std::shared_ptr<Cancellation> cancellation;
    };

    MainActor& actor_;
    Operation<T> operation_;
    std::shared_ptr<State> state_;
};

} // namespace cadora
