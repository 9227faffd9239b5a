#pragma once

#include "platform/BackgroundExecutor.h"
#include "sharing/Rounds.h"

#include <memory>
#include <mutex>
#include <vector>

namespace cadora {

// An executor on which the steps that were asked for in one round are done one after another, and all of them
// before any of those who asked goes on. They read the credentials once.
class SharedBackgroundExecutor : public BackgroundExecutor {
public:
    SharedBackgroundExecutor(BackgroundExecutor& executor, MainActor& mainActor,
                             const std::shared_ptr<Rounds>& rounds);

    // Jobs without a continuation belong to no round.
    void run(std::function<void()> job) override;

    // Main actor only, and the actor is that one.
    void runThen(std::function<void()> job, MainActor& actor, std::function<void()> continuation) override;

private:
    struct Steps;

    BackgroundExecutor& executor_;
    MainActor& mainActor_;
    std::shared_ptr<Rounds> rounds_;
    // Of the open round; null as long as none was asked for in it.
    std::shared_ptr<Steps> steps_;
};

} // namespace cadora
