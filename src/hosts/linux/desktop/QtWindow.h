#pragma once

#include "platform/Window.h"

#include <QWidget>

#include <memory>
#include <optional>

namespace cadora {

// A window of Qt Widgets, which is seen once it has content: one that has none only stands for the place of a
// sheet. It is as large as described, or as its content needs where that is more, and no
// larger than the screen, within which it scrolls. It is drawn anew when the desktop's font or colours
// change.
class QtWindow : public Window {
public:
    // The delegate may be null.
    QtWindow(const WindowDescription& description, WindowDelegate* delegate);
    QtWindow(const QtWindow&) = delete;
    QtWindow& operator=(const QtWindow&) = delete;
    ~QtWindow() override;

    void center() override;
    void makeKeyAndOrderFront() override;
    void orderOut() override;
    void close() override;
    void setContentView(ContentView content, ViewTarget& target) override;
    void updateLabel(const Label& label) override;

    QWidget& widget();

private:
    class Frame;

    void render();

    WindowDescription description_;
    std::optional<ContentView> content_;
    ViewTarget* target_ = nullptr;
    // Deleted by the event loop: it may be the one whose event lets go of this window.
    Frame* frame_;
};

// Puts a window that isn't shown yet into the middle of the screen.
void centerOnScreen(QWidget& window);

// Escape and Ctrl+W close the window.
void closeByKeys(QWidget& window);

} // namespace cadora
