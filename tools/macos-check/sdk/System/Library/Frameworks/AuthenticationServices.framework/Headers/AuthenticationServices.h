#pragma once

#import <AppKit/AppKit.h>

#pragma clang assume_nonnull begin

typedef NS_ENUM(NSInteger, ASAuthorizationAppleIDButtonType) {
    ASAuthorizationAppleIDButtonTypeSignIn,
    ASAuthorizationAppleIDButtonTypeContinue,
};
typedef NS_ENUM(NSInteger, ASAuthorizationAppleIDButtonStyle) {
    ASAuthorizationAppleIDButtonStyleWhite,
    ASAuthorizationAppleIDButtonStyleWhiteOutline,
    ASAuthorizationAppleIDButtonStyleBlack,
};

SINCE(10.15)
@interface ASAuthorizationAppleIDButton : NSControl
+ (instancetype)buttonWithType:(ASAuthorizationAppleIDButtonType)type
                         style:(ASAuthorizationAppleIDButtonStyle)style;
@end

typedef NSWindow* ASPresentationAnchor;

@class ASWebAuthenticationSession;

CONSTANT(NSErrorDomain, ASWebAuthenticationSessionErrorDomain) SINCE(10.15);
typedef NS_ENUM(NSInteger, ASWebAuthenticationSessionErrorCode) {
    ASWebAuthenticationSessionErrorCodeCanceledLogin = 1,
    ASWebAuthenticationSessionErrorCodePresentationContextNotProvided = 2,
    ASWebAuthenticationSessionErrorCodePresentationContextInvalid = 3,
};

SINCE(10.15)
@protocol ASWebAuthenticationPresentationContextProviding <NSObject>
- (ASPresentationAnchor)presentationAnchorForWebAuthenticationSession:(ASWebAuthenticationSession*)session;
@end

typedef void (^ASWebAuthenticationSessionCompletionHandler)(NSURL* _Nullable callbackURL,
                                                            NSError* _Nullable error);

SINCE(10.15)
@interface ASWebAuthenticationSession : NSObject
- (instancetype)initWithURL:(NSURL*)url
          callbackURLScheme:(nullable NSString*)callbackURLScheme
          completionHandler:(ASWebAuthenticationSessionCompletionHandler)completionHandler;
- (instancetype)init NS_UNAVAILABLE;
@property(nullable, weak) id<ASWebAuthenticationPresentationContextProviding> presentationContextProvider;
- (BOOL)start;
- (void)cancel;
@end

#pragma clang assume_nonnull end
