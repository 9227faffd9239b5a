#include "sharing/SharedClock.h"

namespace cadora {

SharedClock::SharedClock(Clock& clock, const std::shared_ptr<Rounds>& rounds)
    : clock_(clock), rounds_(rounds), waits_(rounds) {}

Date SharedClock::now() {
    return clock_.now();
}

CancelAction SharedClock::sleep(std::chrono::nanoseconds duration, Completion<std::monostate> completion) {
    const Share<std::monostate> share = waits_.ask(
        {rounds_->enter(), duration}, std::move(completion),
        [&clock = clock_, duration](Completion<std::monostate> ended) {
            return clock.sleep(duration, std::move(ended));
        },
        // So that nobody waits less than he asked for.
        Waits::Begin::whenTheRoundCloses);
    return [share] { share.leave(); };
}

} // namespace cadora
