#pragma once

#include "app/ServiceProvider.h"

namespace cadora {

// Brings the program up and answers the desktop. A host's main makes one, once the platform is installed, and
// keeps it for the life of the process. Main actor only.
class AppDelegate {
public:
    explicit AppDelegate(UploadQueue& queue = UploadQueue::shared())
        : queue_(queue), serviceProvider_(queue) {}

    // The event loop runs: takes send requests, asks for permission to notify, and sends what an earlier run
    // left in the outbox.
    void applicationDidFinishLaunching();

private:
    UploadQueue& queue_;
    ServiceProvider serviceProvider_;
};

} // namespace cadora
