#pragma once

#include <string>

#import <Foundation/Foundation.h>

namespace cadora {

// Tells the system, for as long as it exists, that the program does what its user asked for: it is neither
// slowed down as an idle program nor does the computer fall asleep for want of events. An upload that sleep
// cuts off would wait until the user does something; a lid that is closed still puts the computer to sleep.
// Any thread.
class ProcessActivity {
public:
    // `reason` shows in the system's tools, for whoever asks why the computer stays awake.
    explicit ProcessActivity(const std::string& reason);
    ProcessActivity(const ProcessActivity&) = delete;
    ProcessActivity& operator=(const ProcessActivity&) = delete;
    ~ProcessActivity();

private:
    id<NSObject> activity_;
};

} // namespace cadora
