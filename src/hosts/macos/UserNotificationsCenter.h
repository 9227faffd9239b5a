#pragma once

#include "platform/UserNotificationCenter.h"

#import <UserNotifications/UserNotifications.h>

@class CadoraNotificationDelegate;

namespace cadora {

// The current UNUserNotificationCenter, which only a program in a bundle has. Made before the application
// runs, so that no notification comes before its delegate.
class UserNotificationsCenter : public UserNotificationCenter {
public:
    UserNotificationsCenter();

    void requestAuthorization(unsigned options) override;
    void add(UserNotificationRequest request) override;

private:
    CadoraNotificationDelegate* delegate_;
};

} // namespace cadora
