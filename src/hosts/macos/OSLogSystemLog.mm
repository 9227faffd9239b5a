#include "hosts/macos/OSLogSystemLog.h"

#include "hosts/macos/FoundationText.h"

#include <os/log.h>

namespace cadora {

void OSLogSystemLog::log(const std::string& line) {
    // Whoever reads the log wants to read the line: what is not declared public shows as <private>. The text
    // is an argument and never the format, since a file name may hold a '%'.
    os_log(OS_LOG_DEFAULT, "%{public}s", visibleText(line).c_str());
}

} // namespace cadora
