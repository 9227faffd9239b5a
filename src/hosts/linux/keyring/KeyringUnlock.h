#pragma once

#include "base/Completion.h"

#include <functional>
#include <string>

namespace cadora {

// Opens the keyring in which a sign-in is kept, asking the user where that needs the user: only for what the
// user has just begun. Main thread only.
class KeyringUnlock {
public:
    // Told what stands in the way, for a person; empty when the keyring is open. Called once, and not within
    // unlock().
    using Handler = std::function<void(const std::string& problem)>;

    virtual ~KeyringUnlock() = default;

    // `parentWindow` is the number of the window that asks, as text; it may be empty. A question that is open
    // when this is called off may stay open; its answer reaches the keyring alone.
    virtual CancelAction unlock(const std::string& parentWindow, Handler handler) = 0;
};

} // namespace cadora
