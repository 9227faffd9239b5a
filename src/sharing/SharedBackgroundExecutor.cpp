#include "sharing/SharedBackgroundExecutor.h"

#include <cassert>
#include <utility>

namespace cadora {

struct SharedBackgroundExecutor::Steps {
    void doAll() const {
        CredentialReads reads;
        const CredentialReads::Scope scope(reads);
        for (const auto& job : jobs) {
            job();
        }
    }

    std::vector<std::function<void()>> jobs;
    std::vector<Rounds::Job> continuations;
};

SharedBackgroundExecutor::SharedBackgroundExecutor(BackgroundExecutor& executor, MainActor& mainActor,
                                                   const std::shared_ptr<Rounds>& rounds)
    : executor_(executor), mainActor_(mainActor), rounds_(rounds) {}

void SharedBackgroundExecutor::run(std::function<void()> job) {
    executor_.run(std::move(job));
}

void SharedBackgroundExecutor::runThen(std::function<void()> job, MainActor& actor,
                                       std::function<void()> continuation) {
    assert(&actor == &mainActor_);
    if (!steps_) {
        steps_ = std::make_shared<Steps>();
        rounds_->atClose([this] {
            const std::shared_ptr<Steps> steps = std::exchange(steps_, nullptr);
            executor_.runThen([steps] { steps->doAll(); }, mainActor_,
                              [steps, rounds = rounds_] {
                                  rounds->deliver([steps] { return std::move(steps->continuations); });
                              });
        });
    }
    steps_->jobs.push_back(std::move(job));
    steps_->continuations.push_back(std::move(continuation));
}

} // namespace cadora
