#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace cadora::test {

// A child process that stands still on its way into a system call.
struct SystemCall {
    pid_t process;
    long number;
    std::array<std::uint64_t, 6> arguments;

    // What the call is about to do to the disk, for example "sync folder/name", "rename a to b" or "fill
    // name", paths being relative to `root`; absent when it does nothing there.
    std::optional<std::string> changeBelow(const std::string& root) const;
};

enum class Next { proceed, kill };

// Runs the operation in a child process and looks at each of its system calls before it happens. Returns
// whether the child came to the end of the operation by itself.
bool runTraced(const std::function<void()>& operation, const std::function<Next(const SystemCall&)>& look);

} // namespace cadora::test
