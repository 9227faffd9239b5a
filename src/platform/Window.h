#pragma once

#include "platform/View.h"

#include <memory>
#include <string>

namespace cadora {

// A titled window that the user can close, and neither resize nor miniaturise. Closing it doesn't release it:
// whoever holds it may show it again. Main actor only.
class Window {
public:
    virtual ~Window() = default;

    // In the middle of the screen.
    virtual void center() = 0;
    virtual void makeKeyAndOrderFront() = 0;
    // Hides the window without closing it.
    virtual void orderOut() = 0;
    // As if the user had closed it.
    virtual void close() = 0;

    // The target must outlive the window or the content.
    virtual void setContentView(ContentView content, ViewTarget& target) = 0;

    // Replaces the label of that identifier by one of the same identifier; nothing happens where there is
    // none.
    virtual void updateLabel(const Label& label) = 0;
};

// Told what becomes of a window. Main actor only.
class WindowDelegate {
public:
    virtual ~WindowDelegate() = default;

    // The user or the program is closing the window. The delegate may let go of it within the call.
    virtual void windowWillClose() = 0;
};

struct WindowDescription {
    double contentWidth = 0;
    double contentHeight = 0;
    std::string title;
};

} // namespace cadora
