#pragma once

#include "hosts/linux/bus/DBusApplication.h"
#include "platform/SystemLog.h"

#include <optional>
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

// Forwards the URIs and logs why where that fails. The exit status of a start that has ended by it; absent
// when nobody runs, and this one is to.
std::optional<int> endByForwarding(const std::vector<std::string>& uris, SystemLog& log);

// Makes the application the one that runs in this session. The exit status of a start that has ended
// otherwise, since another was faster by a moment and took the URIs, or since others come and go without end.
std::optional<int> endUnlessClaimed(DBusApplication& application, const std::vector<std::string>& uris,
                                    SystemLog& log);

} // namespace cadora
