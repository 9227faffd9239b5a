#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <chrono>

namespace cadora::test {

// Qt's event loop in a test, run only while the test waits for something: without a display, unless the test
// has made a QApplication before.
class EventLoop {
public:
    EventLoop() { application(); }

    // Runs the loop until the condition holds; false when it still doesn't after half a minute.
    template <class Condition> bool runUntil(Condition condition) {
        QElapsedTimer elapsed;
        elapsed.start();
        // What other processes and threads bring about wakes no loop here.
        QTimer look;
        look.start(std::chrono::milliseconds(2));
        while (!condition()) {
            if (elapsed.hasExpired(30'000)) {
                return false;
            }
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        return true;
    }

    // Runs what is due now, until nothing is.
    void runPending() {
        bool last = false;
        QMetaObject::invokeMethod(application(), [&last] { last = true; }, Qt::QueuedConnection);
        runUntil([&last] { return last; });
    }

private:
    static QCoreApplication* application() {
        if (QCoreApplication* const existing = QCoreApplication::instance()) {
            return existing;
        }
        static int argumentCount = 1;
        static char name[] = "test";
        static char* arguments[] = {name, nullptr};
        static QCoreApplication instance(argumentCount, arguments);
        return &instance;
    }
};

} // namespace cadora::test
