#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

// What fakes were asked to change, in order. Copies write to the same trace, so that fakes that share one
// tell the order of their calls among each other. Any thread.
class Trace {
public:
    void add(std::string step) {
        const std::lock_guard guard(state_->mutex);
        state_->steps.push_back(std::move(step));
    }

    std::vector<std::string> steps() const {
        const std::lock_guard guard(state_->mutex);
        return state_->steps;
    }

    void clear() {
        const std::lock_guard guard(state_->mutex);
        state_->steps.clear();
    }

private:
    struct State {
        mutable std::mutex mutex;
        std::vector<std::string> steps;
    };

    std::shared_ptr<State> state_ = std::make_shared<State>();
};

} // namespace cadora::test
