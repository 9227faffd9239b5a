#pragma once

#import <Foundation/Foundation.h>

#pragma clang assume_nonnull begin

typedef NS_OPTIONS(NSUInteger, UNAuthorizationOptions) {
    UNAuthorizationOptionBadge = 1 << 0,
    UNAuthorizationOptionSound = 1 << 1,
    UNAuthorizationOptionAlert = 1 << 2,
};

SINCE(10.14)
@interface UNNotificationContent : NSObject <NSCopying>
@end

SINCE(10.14)
@interface UNMutableNotificationContent : UNNotificationContent
@property(copy) NSString* title;
@property(copy) NSString* body;
@end

SINCE(10.14)
@interface UNNotificationTrigger : NSObject <NSCopying>
- (instancetype)init NS_UNAVAILABLE;
@end

SINCE(10.14)
@interface UNNotificationRequest : NSObject <NSCopying>
+ (instancetype)requestWithIdentifier:(NSString*)identifier
                              content:(UNNotificationContent*)content
                              trigger:(nullable UNNotificationTrigger*)trigger;
- (instancetype)init NS_UNAVAILABLE;
@end

SINCE(10.14)
@interface UNNotification : NSObject <NSCopying>
- (instancetype)init NS_UNAVAILABLE;
@end

typedef NS_OPTIONS(NSUInteger, UNNotificationPresentationOptions) {
    UNNotificationPresentationOptionBadge = 1 << 0,
    UNNotificationPresentationOptionSound = 1 << 1,
    UNNotificationPresentationOptionList SINCE(11.0) = 1 << 3,
    UNNotificationPresentationOptionBanner SINCE(11.0) = 1 << 4,
};

@class UNUserNotificationCenter;

SINCE(10.14)
@protocol UNUserNotificationCenterDelegate <NSObject>
@optional
- (void)userNotificationCenter:(UNUserNotificationCenter*)center
       willPresentNotification:(UNNotification*)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions options))completionHandler;
@end

SINCE(10.14)
@interface UNUserNotificationCenter : NSObject
@property(nullable, weak) id<UNUserNotificationCenterDelegate> delegate;
+ (UNUserNotificationCenter*)currentNotificationCenter;
- (instancetype)init NS_UNAVAILABLE;
- (void)requestAuthorizationWithOptions:(UNAuthorizationOptions)options
                      completionHandler:(void (^)(BOOL granted, NSError* _Nullable error))completionHandler;
- (void)addNotificationRequest:(UNNotificationRequest*)request
         withCompletionHandler:(nullable void (^)(NSError* _Nullable error))completionHandler;
@end

#pragma clang assume_nonnull end
