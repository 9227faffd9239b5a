#pragma once

#include <functional>
#include <utility>

namespace cadora {

// Whether a started task has been called off, shared by it and everything that it awaits. Main actor only.
class Cancellation {
public:
    bool isCancelled() const { return cancelled_; }

    // Calls off the step that the task is waiting for, if any. Further calls do nothing.
    void cancel() {
        if (std::exchange(cancelled_, true)) {
            return;
        }
        if (const auto handler = std::exchange(handler_, nullptr)) {
            handler();
        }
    }

    // What calls off the current step. One is enough: a task waits for one thing at a time.
    void setHandler(std::function<void()> handler) { handler_ = std::move(handler); }

private:
    bool cancelled_ = false;
    std::function<void()> handler_;
};

} // namespace cadora
