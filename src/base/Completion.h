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
        if (cancellation_) {
            cancellation_->setHandler(nullptr);
        }
        state_->waiter = nullptr;
        if (!state_->result) {
            callOff();
        }
    }

    bool await_ready() const noexcept { return false; }

    template <class Promise> bool await_suspend(std::coroutine_handle<Promise> waiter) {
        cancellation_ = waiter.promise().cancellation;
        if (cancellation_->isCancelled()) {
            state_->result = failure<T>(CancellationError());
            return false;
        }
        auto state = state_;
        cancel_ = operation_([state](Result<T> result) {
            if (state->result) {
                return;
            }
            state->result = std::move(result);
            if (const auto suspended = std::exchange(state->waiter, nullptr)) {
                suspended.resume();
            }
        });
        if (state_->result) {
            return false;
        }
        state_->waiter = waiter;
        cancellation_->setHandler([this] {
            state_->result = failure<T>(CancellationError());
            callOff();
            actor_.post([state = state_] {
                if (const auto suspended = std::exchange(state->waiter, nullptr)) {
                    suspended.resume();
                }
            });
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
        std::optional<Result<T>> result;
        std::coroutine_handle<> waiter;
    };

    void callOff() {
        if (const auto cancel = std::exchange(cancel_, nullptr)) {
            cancel();
        }
    }

    MainActor& actor_;
    Operation<T> operation_;
    CancelAction cancel_;
    std::shared_ptr<State> state_;
    std::shared_ptr<Cancellation> cancellation_;
};

} // namespace cadora
