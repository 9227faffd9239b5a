#pragma once

#include <chrono>

namespace cadora {

// Ends this process at once when the one that started it goes: a recording that nobody waits for isn't
// worth the user's processor. Where standard input is a pipe or a socket, its end is that sign; otherwise
// the system tells, but it means the thread that started the worker, so that one must live on.
class Lifeline {
public:
    // Before the sandbox closes.
    Lifeline();

    // Starts the thread that watches standard input, where that is the sign.
    void watch() const;

private:
    enum class Sign { endOfInput, deathOfParent } sign_;
};

// Lowers this process's claim to processor and disk below everything that the user does. Threads that are
// started later inherit it.
void yieldToTheUser();

// From now on a worker that makes no progress for two periods of its own processor time, or uses up all that
// it may have, answers with an error of its own and ends. What waits for its turn behind the user's programs
// isn't stuck.
void endWhenStuck(std::chrono::milliseconds period = std::chrono::seconds(40));

// Tells that the work goes on. From any thread.
void noteProgress();

} // namespace cadora
