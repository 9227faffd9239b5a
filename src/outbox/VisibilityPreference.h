#pragma once

#include <string>

namespace cadora {

// The visibility that newly sent files get. The menu writes it; anything unexpected reads as "private".
class VisibilityPreference {
public:
    VisibilityPreference() = delete;

    static constexpr const char* key = "defaultVisibility";
    static constexpr const char* privateValue = "private";
    static constexpr const char* subscribersValue = "subscribers";

    static std::string current();
};

} // namespace cadora
