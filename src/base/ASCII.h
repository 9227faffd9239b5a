#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace cadora {

// Protocol texts are ASCII, and their letter case must not depend on the user's locale.
constexpr char lowercased(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string lowercased(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) { return lowercased(c); });
    return result;
}

inline bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return lowercased(a) == lowercased(b);
}

} // namespace cadora
