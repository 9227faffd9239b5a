#pragma once

#include "base/URL.h"

#include <functional>
#include <string>

namespace cadora {

// The program in which the user reads web pages. Main thread only.
class Browser {
public:
    // Told why the page could not be opened, for a person. Called once at most, and not within open(). A
    // browser that did open says nothing.
    using FailureHandler = std::function<void(const std::string& reason)>;

    virtual ~Browser() = default;

    // `parentWindow` names the window that asks, as the desktop's portals do; it may be empty.
    virtual void open(const URL& page, const std::string& parentWindow, FailureHandler handler) = 0;
};

} // namespace cadora
