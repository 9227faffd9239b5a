#include "hosts/macos/AppKitAlerts.h"

#include "hosts/macos/FoundationText.h"

#include <algorithm>
#include <utility>

#import <AppKit/AppKit.h>
#import <CoreFoundation/CoreFoundation.h>

namespace cadora {

namespace {

NSAlert* makeAlert(const Alert& alert) {
    NSAlert* const result = [[NSAlert alloc] init];
    result.messageText = nsString(alert.messageText);
    result.informativeText = nsString(alert.informativeText);
    result.alertStyle =
        alert.style == Alert::Style::warning ? NSAlertStyleWarning : NSAlertStyleInformational;
    for (const std::string& title : alert.buttons) {
        [result addButtonWithTitle:nsString(title)];
    }
    return result;
}

} // namespace

CancelAction AppKitAlerts::add(Alert alert, Completion<int> completion) {
    const auto request = std::make_shared<Request>(Request{std::move(alert), std::move(completion)});
    waiting_.push_back(request);
    scheduleNext();
    return [this, request] { callOff(request); };
}

// In the default mode, so not while a menu is open or another alert runs.
void AppKitAlerts::scheduleNext() {
    CFRunLoopRef const runLoop = CFRunLoopGetMain();
    CFRunLoopPerformBlock(runLoop, kCFRunLoopDefaultMode, ^{
      runNext();
    });
    CFRunLoopWakeUp(runLoop);
}

// This is called by the main queue, not by the alert's own event loop, and only that loop may be stopped by a
// call of its own: so it is told by its run loop to abort.
void AppKitAlerts::scheduleAbort(const std::shared_ptr<Request>& request) {
    const std::shared_ptr<Request> ending = request;
    CFRunLoopRef const runLoop = CFRunLoopGetMain();
    CFRunLoopPerformBlock(runLoop, (__bridge CFTypeRef)NSModalPanelRunLoopMode, ^{
      if (ending == running_) {
          [[NSApplication sharedApplication] abortModal];
      }
    });
    CFRunLoopWakeUp(runLoop);
}

void AppKitAlerts::runNext() {
    if (running_ || waiting_.empty()) {
        return;
    }
    running_ = std::move(waiting_.front());
    waiting_.pop_front();
    const NSModalResponse response = [makeAlert(running_->alert) runModal];
    const std::shared_ptr<Request> ended = std::exchange(running_, nullptr);
    if (!ended->isCalledOff) {
        mainActor_.post([ended, response] { ended->completion(static_cast<int>(response)); });
    }
    if (!waiting_.empty()) {
        scheduleNext();
    }
}

void AppKitAlerts::callOff(const std::shared_ptr<Request>& request) {
    request->isCalledOff = true;
    if (request == running_) {
        scheduleAbort(request);
    } else {
        std::erase(waiting_, request);
    }
}

} // namespace cadora
