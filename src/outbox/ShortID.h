#pragma once

#include <string>
#include <vector>

namespace cadora {

// Identifiers of outbox items: 8 characters of a to z and 0 to 9, each drawn uniformly from the system's
// secure random source. Uniqueness is not checked: 36^8 values make a clash negligible.
class ShortID {
public:
    ShortID() = delete;

    static const std::vector<char>& alphabet();
    static std::string generate();
};

} // namespace cadora
