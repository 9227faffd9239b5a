#pragma once

namespace cadora {

// Ends this process at once when the one that started it goes: a recording that nobody waits for is not
// worth the user's processor. A pipe or socket at standard input is watched as well, and its end means the
// same; whoever starts the worker from a thread that may end first needs that.
void endWithParent();

} // namespace cadora
