#pragma once

#include "base/MainActor.h"

#include <QObject>

#include <atomic>
#include <functional>

namespace cadora {

// The main actor on the event loop of the thread that creates it, which must be the main thread. Jobs run in
// any Qt event loop of that thread, so also while a modal dialog is open, and those that were posted before
// the loop begins wait for it. Destroying the actor ends every task and drops the jobs that have not begun;
// whoever posts from another thread must have ended before.
class QtMainActor : public MainActor {
public:
    QtMainActor();
    ~QtMainActor() override;

    void post(std::function<void()> job) override;

    // Main actor only. Destroys the tasks, which calls off what they wait for, and drops the jobs that have
    // not begun and all later ones. For the end of the program, while what the tasks wait for still lives.
    void endTasks();

private:
    class Receiver : public QObject {
    protected:
        bool event(QEvent* event) override;
    };

    std::atomic<bool> ending_ = false;
    Receiver receiver_;
};

} // namespace cadora
