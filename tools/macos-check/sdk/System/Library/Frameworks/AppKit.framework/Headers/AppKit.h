#pragma once

#import <Foundation/Foundation.h>
#import <QuartzCore/QuartzCore.h>

#pragma clang assume_nonnull begin

@class NSApplication, NSButton, NSColor, NSControl, NSFont, NSImage, NSMenu, NSMenuItem, NSPasteboard;
@class NSStatusBarButton, NSTextField, NSView, NSWindow;

typedef NSString* NSRunLoopMode;

// Application

typedef NS_ENUM(NSInteger, NSApplicationActivationPolicy) {
    NSApplicationActivationPolicyRegular,
    NSApplicationActivationPolicyAccessory,
    NSApplicationActivationPolicyProhibited,
};

typedef NSInteger NSModalResponse;
static const NSModalResponse NSModalResponseAbort = -1001;

@protocol NSApplicationDelegate <NSObject>
@optional
- (BOOL)applicationShouldHandleReopen:(NSApplication*)sender hasVisibleWindows:(BOOL)hasVisibleWindows;
- (void)applicationDidFinishLaunching:(NSNotification*)notification;
- (void)applicationWillTerminate:(NSNotification*)notification;
- (BOOL)applicationSupportsSecureRestorableState:(NSApplication*)application SINCE(12.0);
@end

@interface NSResponder : NSObject
@end

@interface NSApplication : NSResponder
@property(class, readonly, strong) __kindof NSApplication* sharedApplication;
@property(nullable, weak) id<NSApplicationDelegate> delegate;
@property(readonly, copy) NSArray<NSWindow*>* windows;
@property(nullable, strong) NSImage* applicationIconImage;
@property(nullable, weak) id servicesProvider;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)policy;
- (void)activateIgnoringOtherApps:(BOOL)ignoringOtherApps;
- (void)run;
- (void)terminate:(nullable id)sender;
- (void)abortModal;
@end

CONSTANT(NSRunLoopMode, NSModalPanelRunLoopMode);

FUNCTION void NSUpdateDynamicServices(void);

// Alerts

typedef NS_ENUM(NSUInteger, NSAlertStyle) {
    NSAlertStyleWarning = 0,
    NSAlertStyleInformational = 1,
    NSAlertStyleCritical = 2,
};
static const NSModalResponse NSAlertFirstButtonReturn = 1000;

@interface NSAlert : NSObject
@property(copy) NSString* messageText;
@property(copy) NSString* informativeText;
@property NSAlertStyle alertStyle;
- (NSButton*)addButtonWithTitle:(NSString*)title;
- (NSModalResponse)runModal;
@end

// Pasteboard and workspace

@interface NSPasteboard : NSObject
- (nullable NSArray*)readObjectsForClasses:(NSArray<Class>*)classes
                                   options:(nullable NSDictionary<NSString*, id>*)options SINCE(10.6);
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
- (BOOL)openURL:(NSURL*)url;
- (void)recycleURLs:(NSArray<NSURL*>*)urls
    completionHandler:(nullable void (^)(NSDictionary<NSURL*, NSURL*>* newURLs,
                                         NSError* _Nullable error))handler SINCE(10.6);
@end

// Colours, fonts, images

@interface NSColor : NSObject <NSCopying>
@property(class, readonly, strong) NSColor* labelColor SINCE(10.10);
@property(class, readonly, strong) NSColor* secondaryLabelColor SINCE(10.10);
@property(class, readonly, strong) NSColor* tertiaryLabelColor SINCE(10.10);
@property(class, readonly, strong) NSColor* systemRedColor SINCE(10.10);
@property(class, readonly, strong) NSColor* systemGreenColor SINCE(10.10);
@property(class, readonly, strong) NSColor* windowBackgroundColor;
@property(readonly) CGColorRef CGColor SINCE(10.8);
@end

typedef CGFloat NSFontWeight;
CONSTANT(NSFontWeight, NSFontWeightRegular) SINCE(10.11);
CONSTANT(NSFontWeight, NSFontWeightMedium) SINCE(10.11);
CONSTANT(NSFontWeight, NSFontWeightSemibold) SINCE(10.11);
CONSTANT(NSFontWeight, NSFontWeightBold) SINCE(10.11);

@interface NSFont : NSObject <NSCopying>
+ (NSFont*)systemFontOfSize:(CGFloat)size weight:(NSFontWeight)weight SINCE(10.11);
@end

@interface NSImage : NSObject <NSCopying>
+ (nullable instancetype)imageWithSystemSymbolName:(NSString*)name
                          accessibilityDescription:(nullable NSString*)description SINCE(11.0);
@end

// Layout

@interface NSLayoutConstraint : NSObject
@property(getter=isActive) BOOL active SINCE(10.10);
+ (void)activateConstraints:(NSArray<NSLayoutConstraint*>*)constraints SINCE(10.10);
@end

SINCE(10.11)
@interface NSLayoutAnchor<AnchorType> : NSObject
- (NSLayoutConstraint*)constraintEqualToAnchor:(NSLayoutAnchor<AnchorType>*)anchor constant:(CGFloat)constant;
- (NSLayoutConstraint*)constraintLessThanOrEqualToAnchor:(NSLayoutAnchor<AnchorType>*)anchor
                                                constant:(CGFloat)constant;
@end

@class NSLayoutXAxisAnchor, NSLayoutYAxisAnchor, NSLayoutDimension;
SINCE(10.11)
@interface NSLayoutXAxisAnchor : NSLayoutAnchor <NSLayoutXAxisAnchor*>
@end
SINCE(10.11)
@interface NSLayoutYAxisAnchor : NSLayoutAnchor <NSLayoutYAxisAnchor*>
@end
SINCE(10.11)
@interface NSLayoutDimension : NSLayoutAnchor <NSLayoutDimension*>
- (NSLayoutConstraint*)constraintEqualToConstant:(CGFloat)constant;
@end

// Views

@interface NSView : NSResponder
- (instancetype)initWithFrame:(NSRect)frame NS_DESIGNATED_INITIALIZER;
@property(nullable, readonly, unsafe_unretained) NSWindow* window;
@property(getter=isHidden) BOOL hidden;
@property BOOL wantsLayer;
@property(nullable, strong) CALayer* layer;
@property(readonly) BOOL wantsUpdateLayer SINCE(10.8);
@property(nullable, copy) NSString* toolTip;
@property BOOL translatesAutoresizingMaskIntoConstraints SINCE(10.7);
@property(readonly, strong) NSLayoutXAxisAnchor* leadingAnchor SINCE(10.11);
@property(readonly, strong) NSLayoutXAxisAnchor* trailingAnchor SINCE(10.11);
@property(readonly, strong) NSLayoutYAxisAnchor* topAnchor SINCE(10.11);
@property(readonly, strong) NSLayoutYAxisAnchor* bottomAnchor SINCE(10.11);
@property(readonly, strong) NSLayoutDimension* widthAnchor SINCE(10.11);
@property(readonly, strong) NSLayoutDimension* heightAnchor SINCE(10.11);
- (void)addSubview:(NSView*)view;
- (void)updateLayer SINCE(10.8);
@end

typedef NS_ENUM(NSInteger, NSTextAlignment) {
    NSTextAlignmentLeft = 0,
    NSTextAlignmentCenter = 1,
    NSTextAlignmentRight = 2,
};
typedef NS_ENUM(NSUInteger, NSLineBreakMode) {
    NSLineBreakByWordWrapping = 0,
};

@interface NSControl : NSView
@property(nullable, weak) id target;
@property(nullable) SEL action;
@property(nullable, strong) NSFont* font;
@property(copy) NSString* stringValue;
@property NSTextAlignment alignment;
@property NSLineBreakMode lineBreakMode SINCE(10.10);
@end

@interface NSTextField : NSControl
+ (instancetype)labelWithString:(NSString*)string SINCE(10.12);
@property(nullable, copy) NSColor* textColor;
@property CGFloat preferredMaxLayoutWidth SINCE(10.8);
@property NSInteger maximumNumberOfLines SINCE(10.11);
@end

@interface NSButton : NSControl
+ (instancetype)buttonWithTitle:(NSString*)title
                         target:(nullable id)target
                         action:(nullable SEL)action SINCE(10.12);
@property(getter=isBordered) BOOL bordered;
@property(nullable, copy) NSColor* contentTintColor SINCE(10.14);
@property(nullable, strong) NSImage* image;
@end

typedef NS_ENUM(NSUInteger, NSImageScaling) {
    NSImageScaleProportionallyDown = 0,
    NSImageScaleAxesIndependently,
    NSImageScaleNone,
    NSImageScaleProportionallyUpOrDown,
};

@interface NSImageView : NSControl
@property(nullable, strong) NSImage* image;
@property NSImageScaling imageScaling;
@end

typedef NS_ENUM(NSInteger, NSUserInterfaceLayoutOrientation) {
    NSUserInterfaceLayoutOrientationHorizontal = 0,
    NSUserInterfaceLayoutOrientationVertical = 1,
};
typedef NS_ENUM(NSInteger, NSLayoutAttribute) {
    NSLayoutAttributeCenterX = 9,
};

SINCE(10.9)
@interface NSStackView : NSView
@property NSUserInterfaceLayoutOrientation orientation;
@property NSLayoutAttribute alignment;
@property CGFloat spacing;
@property NSEdgeInsets edgeInsets;
- (void)addArrangedSubview:(NSView*)view SINCE(10.11);
@end

// Windows

typedef NS_OPTIONS(NSUInteger, NSWindowStyleMask) {
    NSWindowStyleMaskTitled = 1 << 0,
    NSWindowStyleMaskClosable = 1 << 1,
};
typedef NS_ENUM(NSUInteger, NSBackingStoreType) {
    NSBackingStoreBuffered = 2,
};

@protocol NSWindowDelegate <NSObject>
@optional
- (void)windowWillClose:(NSNotification*)notification;
@end

@interface NSWindow : NSResponder
- (instancetype)initWithContentRect:(NSRect)contentRect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backing
                              defer:(BOOL)isDeferred NS_DESIGNATED_INITIALIZER;
@property(copy) NSString* title;
@property(getter=isReleasedWhenClosed) BOOL releasedWhenClosed;
@property(nullable, weak) id<NSWindowDelegate> delegate;
@property(nullable, strong) __kindof NSView* contentView;
- (void)center;
- (void)makeKeyAndOrderFront:(nullable id)sender;
- (void)orderOut:(nullable id)sender;
- (void)close;
@end

// Menus and the status bar

typedef NSInteger NSControlStateValue;
static const NSControlStateValue NSControlStateValueOff = 0;
static const NSControlStateValue NSControlStateValueOn = 1;

@interface NSMenuItem : NSObject <NSCopying>
+ (NSMenuItem*)separatorItem;
- (instancetype)initWithTitle:(NSString*)title
                       action:(nullable SEL)action
                keyEquivalent:(NSString*)keyEquivalent NS_DESIGNATED_INITIALIZER;
@property(nullable, weak) id target;
@property(getter=isEnabled) BOOL enabled;
@property NSControlStateValue state;
@property(nullable, strong) NSMenu* submenu;
@property(nullable, copy) NSString* toolTip;
@end

@interface NSMenu : NSObject <NSCopying>
- (instancetype)initWithTitle:(NSString*)title NS_DESIGNATED_INITIALIZER;
@property BOOL autoenablesItems;
- (void)addItem:(NSMenuItem*)item;
- (void)removeAllItems SINCE(10.6);
@end

@interface NSStatusBarButton : NSButton
@end

static const CGFloat NSVariableStatusItemLength = -1.0;

@interface NSStatusItem : NSObject
@property(nullable, readonly, strong) NSStatusBarButton* button SINCE(10.10);
@property(nullable, strong) NSMenu* menu;
@property(getter=isVisible) BOOL visible SINCE(10.12);
@end

@interface NSStatusBar : NSObject
@property(class, readonly, strong) NSStatusBar* systemStatusBar;
- (NSStatusItem*)statusItemWithLength:(CGFloat)length;
- (void)removeStatusItem:(NSStatusItem*)item;
@end

// Accessibility

typedef NSString* NSAccessibilityNotificationName;
typedef NSString* NSAccessibilityNotificationUserInfoKey;
CONSTANT(NSAccessibilityNotificationName, NSAccessibilityAnnouncementRequestedNotification);
CONSTANT(NSAccessibilityNotificationUserInfoKey, NSAccessibilityAnnouncementKey);
CONSTANT(NSAccessibilityNotificationUserInfoKey, NSAccessibilityPriorityKey);
typedef NS_ENUM(NSInteger, NSAccessibilityPriorityLevel) {
    NSAccessibilityPriorityLow = 10,
    NSAccessibilityPriorityMedium = 50,
    NSAccessibilityPriorityHigh = 90,
};
FUNCTION void NSAccessibilityPostNotificationWithUserInfo(
    id element, NSAccessibilityNotificationName notification,
    NSDictionary<NSAccessibilityNotificationUserInfoKey, id>* _Nullable userInfo);

#pragma clang assume_nonnull end
