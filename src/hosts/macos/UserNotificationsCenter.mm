#include "hosts/macos/UserNotificationsCenter.h"

#include "hosts/macos/FoundationText.h"

// Without one, the system shows nothing while the program is active, as it is after a sign-in from the menu.
@interface CadoraNotificationDelegate : NSObject <UNUserNotificationCenterDelegate>
@end

@implementation CadoraNotificationDelegate

- (void)userNotificationCenter:(UNUserNotificationCenter*)center
       willPresentNotification:(UNNotification*)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions))completionHandler {
    completionHandler(UNNotificationPresentationOptionBanner | UNNotificationPresentationOptionList);
}

@end

namespace cadora {

static_assert(static_cast<unsigned>(UserNotificationCenter::sound) == UNAuthorizationOptionSound &&
              static_cast<unsigned>(UserNotificationCenter::alert) == UNAuthorizationOptionAlert);

UserNotificationsCenter::UserNotificationsCenter() : delegate_([[CadoraNotificationDelegate alloc] init]) {
    [UNUserNotificationCenter currentNotificationCenter].delegate = delegate_;
}

void UserNotificationsCenter::requestAuthorization(unsigned options) {
    [[UNUserNotificationCenter currentNotificationCenter]
        requestAuthorizationWithOptions:static_cast<UNAuthorizationOptions>(options)
                      completionHandler:^(BOOL, NSError*){
                      }];
}

void UserNotificationsCenter::add(UserNotificationRequest request) {
    @autoreleasepool {
        UNMutableNotificationContent* const content = [[UNMutableNotificationContent alloc] init];
        content.title = nsString(request.title);
        content.body = nsString(request.body);
        UNNotificationRequest* const notification =
            [UNNotificationRequest requestWithIdentifier:nsString(request.identifier)
                                                 content:content
                                                 trigger:nil];
        [[UNUserNotificationCenter currentNotificationCenter] addNotificationRequest:notification
                                                               withCompletionHandler:nil];
    }
}

} // namespace cadora
