#pragma once

#include "platform/SystemLog.h"

namespace cadora {

// The system's unified log, one entry for each line, at the level that is kept on the disk. Line breaks,
// other control characters and those that turn the text's direction are written as escapes. Any thread.
class OSLogSystemLog : public SystemLog {
public:
    void log(const std::string& line) override;
};

} // namespace cadora
