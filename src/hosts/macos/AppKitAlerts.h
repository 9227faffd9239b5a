#pragma once

#include "base/Completion.h"
#include "base/MainActor.h"
#include "platform/Alert.h"

#include <deque>
#include <memory>

namespace cadora {

// Shows alerts one after the other. Main actor only.
//
// An alert runs an event loop of its own inside the call that shows it. Were that call made by one of the
// main actor's jobs, the main queue, which never runs a job inside another, would stand still until the alert
// is closed. So the run loop itself makes it, between events.
class AppKitAlerts {
public:
    explicit AppKitAlerts(MainActor& mainActor) : mainActor_(mainActor) {}

    CancelAction add(Alert alert, Completion<int> completion);

private:
    struct Request {
        Alert alert;
        Completion<int> completion;
        bool isCalledOff = false;
    };

    void scheduleNext();
    void runNext();
    void scheduleAbort(const std::shared_ptr<Request>& request);
    void callOff(const std::shared_ptr<Request>& request);

    MainActor& mainActor_;
    std::deque<std::shared_ptr<Request>> waiting_;
    std::shared_ptr<Request> running_;
};

} // namespace cadora
