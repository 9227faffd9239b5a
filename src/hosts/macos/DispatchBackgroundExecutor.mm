#include "hosts/macos/DispatchBackgroundExecutor.h"

#include <dispatch/dispatch.h>

namespace cadora {

void DispatchBackgroundExecutor::run(std::function<void()> job) {
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
      @autoreleasepool {
          job();
      }
    });
}

} // namespace cadora
