#pragma once

#include "platform/SystemLog.h"

namespace cadora {

// Standard error, one line for each entry: under a systemd user session that is the journal. Line breaks,
// other control characters and bytes that are not UTF-8 are written as escapes such as \n and \xff. An entry
// that can't be written is dropped.
class StderrSystemLog : public SystemLog {
public:
    void log(const std::string& line) override;
};

} // namespace cadora
