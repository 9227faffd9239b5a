#pragma once

#include "platform/BackgroundExecutor.h"

namespace cadora {

// The system's own pool of threads.
class DispatchBackgroundExecutor : public BackgroundExecutor {
public:
    void run(std::function<void()> job) override;
};

} // namespace cadora
