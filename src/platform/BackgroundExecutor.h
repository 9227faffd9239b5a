#pragma once

#include "base/Completion.h"

#include <exception>
#include <functional>
#include <memory>
#include <type_traits>

namespace cadora {

// Runs plain functions off the main thread: steps that block or take their time, and that work on values
// alone. Jobs may run at the same time as each other.
class BackgroundExecutor {
public:
    virtual ~BackgroundExecutor() = default;

    // From any thread. The job must not throw.
    virtual void run(std::function<void()> job) = 0;
};

// Runs `function` on the executor and continues with its result, or its exception, on the main actor. The
// function is not interrupted by a cancellation; its result is dropped then.
template <class Function>
auto runInBackground(MainActor& actor, BackgroundExecutor& executor, Function function) {
    using T = std::invoke_result_t<Function>;
    return OperationAwaiter<T>(actor,
                               [&actor, &executor, function](Completion<T> completion) -> CancelAction {
                                   executor.run([&actor, function, completion] {
                                       const auto outcome = [&function]() -> Result<T> {
                                           try {
                                               return function();
                                           } catch (...) {
                                               return std::current_exception();
                                           }
                                       };
                                       auto result = std::make_shared<Result<T>>(outcome());
                                       actor.post([result, completion] { completion(std::move(*result)); });
                                   });
                                   return nullptr;
                               });
}

} // namespace cadora
