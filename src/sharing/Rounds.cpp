#include "sharing/Rounds.h"

#include <algorithm>
#include <utility>

namespace cadora {

namespace {

// So many resumptions stand in the main actor's queue at a time: what others post waits for no more than
// these.
constexpr std::size_t postedAtOnce = 16;

} // namespace

std::uint64_t Rounds::enter() {
    open();
    return number_;
}

void Rounds::atClose(Job job) {
    open();
    atClose_.push_back(std::move(job));
}

void Rounds::deliver(std::function<std::vector<Job>()> resumptions) {
    due_.push_back(std::move(resumptions));
    if (!std::exchange(isOpen_, true)) {
        deliverDue();
    }
}

void Rounds::end() {
    const auto due = std::exchange(due_, {});
    const auto resumptions = std::exchange(resumptions_, {});
    const auto atClose = std::exchange(atClose_, {});
}

void Rounds::open() {
    if (!std::exchange(isOpen_, true)) {
        post(&Rounds::close);
    }
}

void Rounds::deliverDue() {
    for (const auto& resumptions : std::exchange(due_, {})) {
        for (Job& job : resumptions()) {
            resumptions_.push_back(std::move(job));
        }
    }
    if (resumptions_.empty()) {
        post(&Rounds::close);
    }
    for (posted_ = 0; posted_ < std::min(postedAtOnce, resumptions_.size()); ++posted_) {
        post(&Rounds::resumeNext);
    }
}

void Rounds::resumeNext() {
    const Job job = std::move(resumptions_.front());
    resumptions_.pop_front();
    --posted_;
    {
        const CredentialReads::Scope scope(reads_);
        job();
    }
    if (resumptions_.empty()) {
        post(&Rounds::close);
    } else if (posted_ < resumptions_.size()) {
        ++posted_;
        post(&Rounds::resumeNext);
    }
}

void Rounds::close() {
    reads_.forget();
    ++number_;
    for (const Job& job : std::exchange(atClose_, {})) {
        job();
    }
    if (due_.empty()) {
        isOpen_ = false;
    } else {
        deliverDue();
    }
}

void Rounds::post(void (Rounds::*step)()) {
    actor_.post([self = shared_from_this(), step] { (*self.*step)(); });
}

} // namespace cadora
