#pragma once

#include "platform/Clock.h"

#include <algorithm>
#include <list>
#include <memory>
#include <utility>
#include <vector>

namespace cadora::test {

// Time that stands still until it is advanced.
class ManualClock : public Clock {
public:
    Date time{816480000.25};
    // Every wait that was asked for, in order.
    std::vector<std::chrono::nanoseconds> sleeps;

    Date now() override { return time; }

    CancelAction sleep(std::chrono::nanoseconds duration, Completion<std::monostate> completion) override {
        sleeps.push_back(duration);
        auto sleeper = std::make_shared<Sleeper>(Sleeper{elapsed_ + duration, std::move(completion)});
        sleepers_.push_back(sleeper);
        return [this, sleeper] { sleepers_.remove(sleeper); };
    }

    std::size_t sleeperCount() const { return sleepers_.size(); }

    void advance(std::chrono::nanoseconds duration) {
        elapsed_ += duration;
        const auto waiting = sleepers_;
        for (const auto& sleeper : waiting) {
            if (sleeper->deadline <= elapsed_) {
                sleepers_.remove(sleeper);
                sleeper->completion(std::monostate{});
            }
        }
    }

private:
    struct Sleeper {
        std::chrono::nanoseconds deadline;
        Completion<std::monostate> completion;
    };

    std::chrono::nanoseconds elapsed_{0};
    std::list<std::shared_ptr<Sleeper>> sleepers_;
};

} // namespace cadora::test
