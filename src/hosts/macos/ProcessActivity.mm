#include "hosts/macos/ProcessActivity.h"

#include "hosts/macos/FoundationText.h"

namespace cadora {

ProcessActivity::ProcessActivity(const std::string& reason)
    : activity_([[NSProcessInfo processInfo] beginActivityWithOptions:NSActivityUserInitiated
                                                               reason:nsString(reason)]) {}

ProcessActivity::~ProcessActivity() {
    [[NSProcessInfo processInfo] endActivity:activity_];
}

} // namespace cadora
