#pragma once

#include "hosts/macos/AppKitView.h"
#include "platform/Window.h"

#import <AppKit/AppKit.h>

@class CadoraWindowDelegate;

namespace cadora {

// An NSWindow, with the objects that AppKit only refers to weakly.
class AppKitWindow : public Window {
public:
    // A new one, not shown yet.
    AppKitWindow(const WindowDescription& description, WindowDelegate* delegate);

    // One that exists already, whoever made it.
    explicit AppKitWindow(NSWindow* window);

    AppKitWindow(const AppKitWindow&) = delete;
    AppKitWindow& operator=(const AppKitWindow&) = delete;
    // May be called while the window tells that it is closing.
    ~AppKitWindow() override;

    NSWindow* nsWindow() const { return window_; }

    void center() override;
    void makeKeyAndOrderFront() override;
    void orderOut() override;
    void close() override;
    void setContentView(ContentView content, ViewTarget& target) override;
    void updateLabel(const Label& label) override;

private:
    NSWindow* window_;
    CadoraWindowDelegate* delegate_ = nil;
    CadoraViewTarget* target_ = nil;
    IdentifiedLabels* labels_ = nil;
};

} // namespace cadora
