#include "hosts/linux/system/QtMainActor.h"

#include <QCoreApplication>
#include <QEvent>

#include <utility>

namespace cadora {

namespace {

const QEvent::Type jobEventType = static_cast<QEvent::Type>(QEvent::registerEventType());

class JobEvent : public QEvent {
public:
    explicit JobEvent(std::function<void()> job) : QEvent(jobEventType), job_(std::move(job)) {}

    // A job has nobody to report to; Qt's loop can't carry an exception any further.
    void run() noexcept { job_(); }

private:
    std::function<void()> job_;
};

} // namespace

bool QtMainActor::Receiver::event(QEvent* event) {
    if (event->type() != jobEventType) {
        return QObject::event(event);
    }
    static_cast<JobEvent*>(event)->run();
    return true;
}

QtMainActor::QtMainActor() = default;

QtMainActor::~QtMainActor() {
    endTasks();
}

void QtMainActor::endTasks() {
    ending_ = true;
    destroyTasks();
    QCoreApplication::removePostedEvents(&receiver_, jobEventType);
}

void QtMainActor::post(std::function<void()> job) {
    if (!ending_) {
        QCoreApplication::postEvent(&receiver_, new JobEvent(std::move(job)));
    }
}

} // namespace cadora
