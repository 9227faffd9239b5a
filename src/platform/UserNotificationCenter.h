#pragma once

#include <string>

namespace cadora {

// A notification without sound, badge or category, delivered at once.
struct UserNotificationRequest {
    std::string identifier;
    std::string title;
    std::string body;
};

// The desktop's notifications. Fire and forget: a failure, a refused permission included, is silent. Any
// thread, and no call waits.
class UserNotificationCenter {
public:
    enum AuthorizationOptions : unsigned { sound = 2, alert = 4 };

    virtual ~UserNotificationCenter() = default;

    virtual void requestAuthorization(unsigned options) = 0;

    // Two requests with different identifiers are two notifications, however alike.
    virtual void add(UserNotificationRequest request) = 0;
};

} // namespace cadora
