#pragma once

#include "hosts/linux/bus/DBusApplication.h"
#include "platform/SystemLog.h"

#include <functional>
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
        noDisplay,    // it runs, and can show nothing where it does
        noAnswer,     // it runs, but did not answer in time or not sensibly
        noSessionBus, // nobody can be asked, and nobody could reach the caller either
    };

    Outcome outcome;
    // Why, for a person; empty when done and when nobody runs.
    std::string reason;
};

// Hands the URIs to the helper that runs in this session, or opens that one again when there are none, with
// what the desktop gave this process in its environment to come to the front with. Blocks until it has
// answered, for two minutes at most: it may be copying a large file. Needs no event loop and no display, and
// starts no program.
Forwarding forwardToRunningHelper(const std::vector<std::string>& uris);

// Asks the helper that runs without a display to leave its place to the caller, and waits, for half a minute
// at most, until it has ended. What it was doing goes on from its last finished step. Returns why that
// failed; empty when it has gone.
std::string takeOverFromRunningHelper();

// What a process was started for.
struct Start {
    std::vector<std::string> uris;
    // Not by the user, but by the bus or by a sender that has a request.
    bool isForService = false;
    // Whether this process could show windows.
    std::function<bool()> hasDisplay;

    bool isOpening() const { return uris.empty() && !isForService; }
};

// Forwards what the start is for, or takes the place of a helper that could not show what the user opened,
// and logs why where that fails. The exit status of a start that has ended by it; absent when nobody runs,
// and this one is to.
std::optional<int> endByForwarding(const Start& start, SystemLog& log);

// Makes the application the one that runs in this session. The exit status of a start that has ended
// otherwise, since another was faster by a moment and took the URIs, or since others come and go without end.
std::optional<int> endUnlessClaimed(DBusApplication& application, const Start& start, SystemLog& log);

} // namespace cadora
