#pragma once

#include "hosts/linux/system/FileDescriptor.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace cadora {

// Asks a command that runs on one thread to stop, from another.
class StopSignal {
public:
    StopSignal();

    // From any thread; further requests do nothing.
    void request() const;

    // Readable once a stop is requested; negative if the system had no descriptor left.
    int descriptor() const { return event_.get(); }

private:
    FileDescriptor event_;
};

// A program to run apart from this one. It gets an empty environment, the root folder as its working
// directory, signals as they are by default, and no descriptors but these: an input that ends when this
// process does, its output and diagnostics, and the given ones as 3, 4 and so on.
struct Command {
    std::filesystem::path program; // absolute
    std::vector<std::string> arguments;
    std::vector<int> descriptors;
    // What neither reads, writes nor, where that isn't shown, computes for this long is taken to hang.
    std::chrono::milliseconds stallLimit{};
    // What runs for longer is ended, whatever it does.
    std::chrono::milliseconds timeLimit = std::chrono::hours(24);
};

struct CommandOutcome {
    enum class End {
        exited,      // `status` is the exit code
        signalled,   // `status` is the signal
        stalled,     // it made no progress and was killed
        overran,     // it went on beyond its time and was killed
        overflowed,  // it wrote more than an answer can be and was killed
        stopped,     // it was asked to stop and was killed
        didNotStart, // `status` is the errno value
    };

    End end = End::didNotStart;
    int status = 0;
    std::string output;
    std::string diagnostics; // the beginning of its standard error
};

constexpr std::size_t longestCommandOutput = 4096;
constexpr std::size_t longestCommandDiagnostics = 4096;

// Runs it to its end, on the calling thread, which sleeps meanwhile. When this returns, the process and those
// that it started are gone.
CommandOutcome runCommand(const Command& command, const StopSignal& stop);

} // namespace cadora
