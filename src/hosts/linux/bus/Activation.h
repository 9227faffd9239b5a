#pragma once

#include <string>

namespace cadora {

// What a desktop gives with a start or a call that comes from a deed of the user's, one for each way to show
// windows; empty where it gives none.
struct Activation {
    std::string waylandToken;
    std::string x11StartupID;

    bool isEmpty() const { return waylandToken.empty() && x11StartupID.empty(); }
};

} // namespace cadora
