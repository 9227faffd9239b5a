#pragma once

#include "base/Completion.h"

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace cadora {

// Runs plain functions off the main thread: steps that block or take their time, and that work on values
// alone. Jobs may run at the same time as each other.
class BackgroundExecutor {
public:
    virtual ~BackgroundExecutor() = default;

    // From any thread. The job must not throw.
    virtual void run(std::function<void()> job) = 0;

    // The same, and `continuation` on the main actor afterwards.
    virtual void runThen(std::function<void()> job, MainActor& actor, std::function<void()> continuation) {
        run([job = std::move(job), &actor, continuation = std::move(continuation)] {
            job();
            actor.post(continuation);
        });
    }
};

// Runs `function` on the executor and continues with its result, or its exception, on the main actor. The
// function is not interrupted by a cancellation; its result is dropped then.
template <class Function>
auto runInBackground(MainActor& actor, BackgroundExecutor& executor, Function function) {
    using T = std::invoke_result_t<Function>;
    return OperationAwaiter<T>(
        actor, [&actor, &executor, function](Completion<T> completion) -> CancelAction {
            const auto result = std::make_shared<std::optional<Result<T>>>();
            const auto job = [function, result] {
                try {
                    result->emplace(function());
                } catch (...) {
                    result->emplace(std::current_exception());
                }
            };
            executor.runThen(job, actor, [result, completion] { completion(std::move(**result)); });
            return nullptr;
        });
}

} // namespace cadora
