#pragma once

#include <string>
#include <vector>

namespace cadora {

// How a request to the running helper ended.
struct Forwarding {
    enum class Outcome {
        done,
        nobodyRuns,   // the caller may become the running helper
        refused,      // it answered that it can't
        noAnswer,     // it runs, but did not answer in time or not sensibly
        noSessionBus, // nobody can be asked, and nobody could reach the caller either
    };

    Outcome outcome;
    // Why, for a person; empty when done and when nobody runs.
    std::string reason;
};

// Hands the URIs to the helper that runs in this session, or opens that one again when there are none. Blocks
// until it has answered, for two minutes at most: it may be copying a large file. Needs no event loop and no
// display, and starts no program.
Forwarding forwardToRunningHelper(const std::vector<std::string>& uris);

} // namespace cadora
