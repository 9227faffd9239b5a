#include "hosts/macos/UserNotificationsCenter.h"

#include "hosts/macos/FoundationText.h"

#import <UserNotifications/UserNotifications.h>

namespace cadora {

static_assert(static_cast<unsigned>(UserNotificationCenter::sound) == UNAuthorizationOptionSound &&
              static_cast<unsigned>(UserNotificationCenter::alert) == UNAuthorizationOptionAlert);

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
