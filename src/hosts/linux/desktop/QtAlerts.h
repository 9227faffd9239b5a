#pragma once

#include "base/Completion.h"
#include "base/MainActor.h"
#include "platform/Alert.h"

#include <deque>
#include <memory>

class QMessageBox;

namespace cadora {

// The program's alerts, one after the other, as message boxes in front of its windows. The event loop goes on
// meanwhile. Closing a box without choosing answers its last button. Main thread only.
class QtAlerts {
public:
    // `mainActor`, on which alerts complete, must outlive this.
    explicit QtAlerts(MainActor& mainActor) : mainActor_(mainActor) {}
    QtAlerts(const QtAlerts&) = delete;
    QtAlerts& operator=(const QtAlerts&) = delete;
    ~QtAlerts();

    // The actions returned must not be used once this is gone.
    CancelAction run(Alert alert, Completion<int> completion);

private:
    struct Request {
        Alert alert;
        Completion<int> completion;
    };

    void showNext();
    void end(const std::shared_ptr<Request>& request);

    MainActor& mainActor_;
    // The first one is on the screen.
    std::deque<std::shared_ptr<Request>> requests_;
    QMessageBox* box_ = nullptr;
};

} // namespace cadora
