#include "hosts/macos/DispatchClock.h"

#include <algorithm>
#include <utility>

#include <dispatch/dispatch.h>

namespace cadora {

Date DispatchClock::now() {
    return Date::from(std::chrono::system_clock::now());
}

CancelAction DispatchClock::sleep(std::chrono::nanoseconds duration, Completion<std::monostate> completion) {
    dispatch_source_t timer =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_main_queue());
    const auto delta = std::max<std::int64_t>(duration.count(), 0);
    dispatch_source_set_timer(timer, dispatch_time(DISPATCH_TIME_NOW, delta), DISPATCH_TIME_FOREVER, 0);
    // The handler holds the timer until it fires or is cancelled: cancelling a source releases its handlers.
    dispatch_source_set_event_handler(timer, ^{
      dispatch_source_cancel(timer);
      completion(std::monostate());
    });
    dispatch_resume(timer);
    return [timer] { dispatch_source_cancel(timer); };
}

} // namespace cadora
