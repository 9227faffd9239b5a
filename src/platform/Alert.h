#pragma once

#include <string>
#include <vector>

namespace cadora {

// A modal message with its buttons, as a value.
struct Alert {
    enum class Style { informational, warning };

    // What an alert answers when its first button was chosen, or closed it by the platform's usual keys.
    static constexpr int firstButtonReturn = 1000;

    std::string messageText;
    std::string informativeText;
    // The first is the default one. None: the platform's own single button.
    std::vector<std::string> buttons{};
    Style style = Style::informational;

    friend bool operator==(const Alert&, const Alert&) = default;
};

} // namespace cadora
