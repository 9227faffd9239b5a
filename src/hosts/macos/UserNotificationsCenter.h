#pragma once

#include "platform/UserNotificationCenter.h"

namespace cadora {

// The current UNUserNotificationCenter, which only a program in a bundle has.
class UserNotificationsCenter : public UserNotificationCenter {
public:
    void requestAuthorization(unsigned options) override;
    void add(UserNotificationRequest request) override;
};

} // namespace cadora
