#include "hosts/macos/AppKitWindow.h"

#include "hosts/macos/FoundationText.h"

#include <dispatch/dispatch.h>

@interface CadoraWindowDelegate : NSObject <NSWindowDelegate>
// The delegate must outlive this object.
- (instancetype)initWithDelegate:(cadora::WindowDelegate*)delegate NS_DESIGNATED_INITIALIZER;
- (instancetype)init NS_UNAVAILABLE;
@end

@implementation CadoraWindowDelegate {
    cadora::WindowDelegate* _delegate;
}

- (instancetype)initWithDelegate:(cadora::WindowDelegate*)delegate {
    if (self = [super init]) {
        _delegate = delegate;
    }
    return self;
}

- (void)windowWillClose:(NSNotification*)notification {
    // The window's owner may let go of it within the call, and AppKit is still at work on it: it stays until
    // the next turn.
    id const window = notification.object;
    _delegate->windowWillClose();
    dispatch_async(dispatch_get_main_queue(), ^{
      (void)window;
    });
}

@end

namespace cadora {

namespace {

NSWindow* makeTitledWindow(const WindowDescription& description) {
    NSWindow* const window = [[NSWindow alloc]
        initWithContentRect:NSMakeRect(0, 0, description.contentWidth, description.contentHeight)
                  styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable
                    backing:NSBackingStoreBuffered
                      defer:NO];
    window.title = nsString(description.title);
    return window;
}

// One that nothing is said of is never shown: it only stands for a window where the platform wants one.
NSWindow* makeWindow(const WindowDescription& description) {
    const bool isPlain =
        description.title.empty() && description.contentWidth == 0 && description.contentHeight == 0;
    NSWindow* const window = isPlain ? [[NSWindow alloc] init] : makeTitledWindow(description);
    window.releasedWhenClosed = NO;
    return window;
}

void announce(NSString* text, NSTextField* field) {
    NSWindow* const window = field.window;
    if (text.length == 0 || window == nil) {
        return;
    }
    NSAccessibilityPostNotificationWithUserInfo(
        window, NSAccessibilityAnnouncementRequestedNotification, @{
            NSAccessibilityAnnouncementKey : text,
            NSAccessibilityPriorityKey : @(NSAccessibilityPriorityHigh),
        });
}

} // namespace

AppKitWindow::AppKitWindow(const WindowDescription& description, WindowDelegate* delegate)
    : window_(makeWindow(description)) {
    if (delegate != nullptr) {
        delegate_ = [[CadoraWindowDelegate alloc] initWithDelegate:delegate];
        window_.delegate = delegate_;
    }
}

AppKitWindow::AppKitWindow(NSWindow* window) : window_(window) {}

AppKitWindow::~AppKitWindow() {
    if (delegate_ != nil) {
        window_.delegate = nil;
    }
}

void AppKitWindow::center() {
    [window_ center];
}

void AppKitWindow::makeKeyAndOrderFront() {
    [window_ makeKeyAndOrderFront:nil];
}

void AppKitWindow::orderOut() {
    [window_ orderOut:nil];
}

void AppKitWindow::close() {
    // Closing may make the delegate let go of this object.
    NSWindow* const window = window_;
    [window close];
}

void AppKitWindow::setContentView(ContentView content, ViewTarget& target) {
    CadoraViewTarget* const newTarget = [[CadoraViewTarget alloc] initWithTarget:&target];
    IdentifiedLabels* const labels = [NSMutableDictionary dictionary];
    window_.contentView = render(content, newTarget, labels);
    target_ = newTarget;
    labels_ = labels;
}

void AppKitWindow::updateLabel(const Label& label) {
    NSTextField* const field = labels_[nsString(label.identifier)];
    if (field == nil) {
        return;
    }
    apply(label, field);
    if (!field.hidden) {
        announce(field.stringValue, field);
    }
}

} // namespace cadora
