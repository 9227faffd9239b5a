#include "hosts/linux/system/QtClock.h"

#include <QPointer>

#include <algorithm>
#include <utility>

namespace cadora {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// One wait. A timer's interval is limited to some weeks, so that a longer wait takes several timers.
class Sleep : public QObject {
public:
    Sleep(QObject& parent, steady_clock::time_point end, Completion<std::monostate> completion)
        : QObject(&parent), end_(end), completion_(std::move(completion)) {
        startTimer();
    }

    void end() {
        if (timer_ != 0) {
            killTimer(std::exchange(timer_, 0));
            deleteLater();
        }
    }

protected:
    void timerEvent(QTimerEvent*) override {
        if (steady_clock::now() < end_) {
            killTimer(timer_);
            startTimer();
            return;
        }
        end();
        completion_(std::monostate());
    }

private:
    void startTimer() {
        const auto rest = std::chrono::ceil<milliseconds>(end_ - steady_clock::now());
        const auto interval = std::clamp<milliseconds>(rest, milliseconds(0), std::chrono::hours(24));
        timer_ = QObject::startTimer(interval, Qt::PreciseTimer);
    }

    steady_clock::time_point end_;
    Completion<std::monostate> completion_;
    int timer_ = 0;
};

} // namespace

Date QtClock::now() {
    return Date::from(std::chrono::system_clock::now());
}

CancelAction QtClock::sleep(std::chrono::nanoseconds duration, Completion<std::monostate> completion) {
    const QPointer<Sleep> sleep = new Sleep(sleeps_, steady_clock::now() + duration, std::move(completion));
    return [sleep] {
        if (sleep) {
            sleep->end();
        }
    };
}

} // namespace cadora
