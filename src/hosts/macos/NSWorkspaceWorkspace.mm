#include "hosts/macos/NSWorkspaceWorkspace.h"

#include "hosts/macos/FoundationText.h"

#import <AppKit/AppKit.h>

namespace cadora {

void NSWorkspaceWorkspace::openURL(const URL& url) {
    if (NSURL* const target = nsURL(url)) {
        [[NSWorkspace sharedWorkspace] openURL:target];
    }
}

void NSWorkspaceWorkspace::recycle(const std::filesystem::path& item, std::function<void()> handler) {
    [[NSWorkspace sharedWorkspace] recycleURLs:@[ fileURL(item) ]
                             completionHandler:^(NSDictionary<NSURL*, NSURL*>*, NSError*) {
                               handler();
                             }];
}

} // namespace cadora
