#pragma once

#include "platform/SystemLog.h"

namespace cadora {

// The system's log through NSLog, one entry for each line. Line breaks, other control characters and those
// that turn the text's direction are written as escapes.
class NSLogSystemLog : public SystemLog {
public:
    void log(const std::string& line) override;
};

} // namespace cadora
