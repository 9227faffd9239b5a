#pragma once

#include "base/Task.h"
#include "fakes/ManualMainActor.h"

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace cadora::test {

// How a task that the test awaits has ended, if it has.
template <class T> struct Outcome {
    std::optional<T> value;
    std::exception_ptr error;

    bool ended() const { return value || error; }

    // The error as its type, or null.
    template <class E> std::optional<E> as() const {
        if (error) {
            try {
                std::rethrow_exception(error);
            } catch (const E& known) {
                return known;
            } catch (...) {
            }
        }
        return std::nullopt;
    }
};

template <class T> Task<void> recordOutcome(Task<T> task, std::shared_ptr<Outcome<T>> outcome) {
    try {
        outcome->value = co_await std::move(task);
    } catch (...) {
        outcome->error = std::current_exception();
    }
}

inline Task<void> recordOutcome(Task<void> task, std::shared_ptr<Outcome<std::monostate>> outcome) {
    try {
        co_await std::move(task);
        outcome->value = std::monostate{};
    } catch (...) {
        outcome->error = std::current_exception();
    }
}

// A task under way, its outcome, and the means to call it off.
template <class T> struct Awaited {
    std::shared_ptr<Outcome<T>> outcome;
    StartedTask task;
};

template <class T> Awaited<T> start(ManualMainActor& actor, Task<T> task) {
    auto outcome = std::make_shared<Outcome<T>>();
    return {outcome, actor.start(recordOutcome(std::move(task), outcome))};
}

inline Awaited<std::monostate> start(ManualMainActor& actor, Task<void> task) {
    auto outcome = std::make_shared<Outcome<std::monostate>>();
    return {outcome, actor.start(recordOutcome(std::move(task), outcome))};
}

// Runs the actor until nothing moves any more.
template <class T> Outcome<T> await(ManualMainActor& actor, Task<T> task) {
    const auto awaited = start(actor, std::move(task));
    actor.runUntilIdle();
    return *awaited.outcome;
}

inline Outcome<std::monostate> await(ManualMainActor& actor, Task<void> task) {
    const auto awaited = start(actor, std::move(task));
    actor.runUntilIdle();
    return *awaited.outcome;
}

} // namespace cadora::test
