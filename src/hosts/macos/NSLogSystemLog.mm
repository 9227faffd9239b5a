#include "hosts/macos/NSLogSystemLog.h"

#include "hosts/macos/FoundationText.h"

namespace cadora {

void NSLogSystemLog::log(const std::string& line) {
    // The text is an argument and never the format: a file name may hold a '%'.
    NSLog(@"%@", nsString(visibleText(line)));
}

} // namespace cadora
