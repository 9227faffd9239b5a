#pragma once

#include "base/MainActor.h"
#include "sharing/CredentialReads.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace cadora {

// Keeps tasks that do the same work in step.
//
// What has ended is told in rounds: everybody who waits for it is resumed, each by a job of its own on the
// main actor, in the order in which they asked, and asks for his next step within that job. A job behind the
// last of them closes the round. So when a round closes, whoever would ask for the same in it has asked; what
// ends meanwhile waits for the next one. A round opens with the first thing that is asked for, or with the
// first end, while none is open. Main actor only.
class Rounds : public std::enable_shared_from_this<Rounds> {
public:
    using Job = std::function<void()>;

    // The actor outlives every job that it has been given.
    explicit Rounds(MainActor& actor) : actor_(actor) {}

    // Whoever asks for something says so, and learns the number of the round.
    std::uint64_t enter();

    // Runs `job` when the open round closes.
    void atClose(Job job);

    // Something has ended. When its turn comes, `resumptions` says whom to resume: from then on nobody can
    // join those who wait for it.
    void deliver(std::function<std::vector<Job>()> resumptions);

    // Forgets everybody who was to be resumed, and with them their work, which holds this. For the end, after
    // which nothing is asked for or delivered, and no job of the actor's runs.
    void end();

    // What those who are resumed in this round read of the credentials, they read once.
    CredentialReads& reads() { return reads_; }

private:
    void open();
    void deliverDue();
    void resumeNext();
    void close();
    void post(void (Rounds::*step)());

    MainActor& actor_;
    std::uint64_t number_ = 0;
    bool isOpen_ = false;
    std::vector<std::function<std::vector<Job>()>> due_;
    std::deque<Job> resumptions_;
    std::size_t posted_ = 0;
    std::vector<Job> atClose_;
    CredentialReads reads_;
};

} // namespace cadora
