#pragma once

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/NSObject.h>

#pragma clang assume_nonnull begin

@class NSString, NSData, NSError, NSURL;

inline id _Nullable CFBridgingRelease(CFTypeRef _Nullable CF_CONSUMED object) {
    return (__bridge_transfer id)object;
}
inline CFTypeRef _Nullable CFBridgingRetain(id _Nullable object) CF_RETURNS_RETAINED {
    return (__bridge_retained CFTypeRef)object;
}

// Geometry

struct CGPoint {
    CGFloat x;
    CGFloat y;
};
struct CGSize {
    CGFloat width;
    CGFloat height;
};
struct CGRect {
    CGPoint origin;
    CGSize size;
};
typedef CGPoint NSPoint;
typedef CGSize NSSize;
typedef CGRect NSRect;
CONSTANT(NSPoint, NSZeroPoint);
CONSTANT(NSRect, NSZeroRect);
inline NSRect NSMakeRect(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
    return {{x, y}, {width, height}};
}

struct NSEdgeInsets {
    CGFloat top;
    CGFloat left;
    CGFloat bottom;
    CGFloat right;
};
inline NSEdgeInsets NSEdgeInsetsMake(CGFloat top, CGFloat left, CGFloat bottom, CGFloat right) {
    return {top, left, bottom, right};
}

// Collections

typedef struct {
    unsigned long state;
    id __unsafe_unretained _Nullable* _Nullable itemsPtr;
    unsigned long* _Nullable mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)count;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nullable])objects count:(NSUInteger)count;
@property(readonly) NSUInteger count;
@property(nullable, readonly) ObjectType firstObject;
- (ObjectType)objectAtIndexedSubscript:(NSUInteger)index;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
+ (instancetype)dictionary;
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                              forKeys:(const KeyType<NSCopying> _Nonnull[_Nullable])keys
                                count:(NSUInteger)count;
@property(readonly) NSUInteger count;
- (nullable ObjectType)objectForKeyedSubscript:(KeyType)key;
@end

@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary <KeyType, ObjectType>
- (void)setObject:(nullable ObjectType)object forKeyedSubscript:(KeyType<NSCopying>)key;
@end

@interface NSEnumerator<ObjectType> : NSObject <NSFastEnumeration>
- (nullable ObjectType)nextObject;
@end

// Values

@interface NSNumber : NSObject <NSCopying>
+ (NSNumber*)numberWithBool:(BOOL)value;
+ (NSNumber*)numberWithInt:(int)value;
+ (NSNumber*)numberWithUnsignedInt:(unsigned int)value;
+ (NSNumber*)numberWithInteger:(NSInteger)value;
+ (NSNumber*)numberWithLong:(long)value;
+ (NSNumber*)numberWithUnsignedLong:(unsigned long)value;
+ (NSNumber*)numberWithLongLong:(long long)value;
+ (NSNumber*)numberWithDouble:(double)value;
@property(readonly) BOOL boolValue;
@property(readonly) double doubleValue;
@property(readonly) long long longLongValue;
@end

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject <NSCopying>
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)length
                              encoding:(NSStringEncoding)encoding;
@property(readonly) NSUInteger length;
- (BOOL)isEqualToString:(NSString*)string;
- (nullable NSData*)dataUsingEncoding:(NSStringEncoding)encoding allowLossyConversion:(BOOL)lossy;
@property(readonly, copy) NSString* stringByResolvingSymlinksInPath;
@end

typedef NS_OPTIONS(NSUInteger, NSDataReadingOptions) {
    NSDataReadingUncached = 1UL << 1,
};

@interface NSData : NSObject <NSCopying>
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
+ (nullable instancetype)dataWithContentsOfFile:(NSString*)path
                                        options:(NSDataReadingOptions)options
                                          error:(NSError**)error;
@property(readonly) NSUInteger length;
@property(nullable, readonly) const void* bytes;
@end

@interface NSUUID : NSObject <NSCopying>
+ (instancetype)UUID SINCE(10.8);
@property(readonly, copy) NSString* UUIDString SINCE(10.8);
@end

typedef NSString* NSErrorDomain;
typedef NSString* NSErrorUserInfoKey;
CONSTANT(NSErrorDomain, NSPOSIXErrorDomain);
CONSTANT(NSErrorDomain, NSCocoaErrorDomain);
CONSTANT(NSErrorUserInfoKey, NSUnderlyingErrorKey);

@interface NSError : NSObject <NSCopying>
@property(readonly, copy) NSErrorDomain domain;
@property(readonly) NSInteger code;
@property(readonly, copy) NSDictionary<NSErrorUserInfoKey, id>* userInfo;
@property(readonly, copy) NSString* localizedDescription;
@property(nullable, readonly, copy) NSString* localizedFailureReason;
@end

@interface NSURL : NSObject <NSCopying>
+ (nullable instancetype)URLWithString:(NSString*)string;
+ (NSURL*)fileURLWithPath:(NSString*)path;
@property(nullable, readonly, copy) NSString* absoluteString;
@property(nullable, readonly, copy) NSString* scheme;
@property(nullable, readonly, copy) NSString* path;
@property(readonly, getter=isFileURL) BOOL fileURL;
@property(nullable, readonly, copy) NSURL* filePathURL SINCE(10.6);
@end

@interface NSNotification : NSObject <NSCopying>
@property(nullable, readonly, strong) id object;
@end

@interface NSBundle : NSObject
@property(class, readonly, strong) NSBundle* mainBundle;
@property(readonly, copy) NSString* bundlePath;
@end

// Files

typedef NS_ENUM(NSUInteger, NSSearchPathDirectory) {
    NSApplicationSupportDirectory = 14,
};
typedef NS_OPTIONS(NSUInteger, NSSearchPathDomainMask) {
    NSUserDomainMask = 1,
};
typedef NS_ENUM(NSInteger, NSURLRelationship) {
    NSURLRelationshipContains,
    NSURLRelationshipSame,
    NSURLRelationshipOther,
};

@interface NSDirectoryEnumerator<ObjectType> : NSEnumerator <ObjectType>
@end

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
- (NSArray<NSURL*>*)URLsForDirectory:(NSSearchPathDirectory)directory
                           inDomains:(NSSearchPathDomainMask)domains SINCE(10.6);
- (BOOL)getRelationship:(NSURLRelationship*)relationship
       ofDirectoryAtURL:(NSURL*)directory
            toItemAtURL:(NSURL*)item
                  error:(NSError**)error SINCE(10.10);
- (BOOL)fileExistsAtPath:(NSString*)path;
- (nullable NSArray<NSString*>*)contentsOfDirectoryAtPath:(NSString*)path error:(NSError**)error;
- (nullable NSDirectoryEnumerator<NSString*>*)enumeratorAtPath:(NSString*)path;
- (BOOL)copyItemAtPath:(NSString*)from toPath:(NSString*)to error:(NSError**)error;
- (BOOL)removeItemAtPath:(NSString*)path error:(NSError**)error;
- (BOOL)startDownloadingUbiquitousItemAtURL:(NSURL*)url error:(NSError**)error SINCE(10.7);
@end

FUNCTION NSString* NSTemporaryDirectory(void);

typedef NSString* NSRunLoopMode;

// Processes

// What the user has asked for, which the system must not fall asleep over when it is idle.
typedef NS_OPTIONS(uint64_t, NSActivityOptions) {
    NSActivityIdleSystemSleepDisabled = 1ULL << 20,
    NSActivityUserInitiated = 0x00FFFFFFULL | NSActivityIdleSystemSleepDisabled,
};

@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
- (id<NSObject>)beginActivityWithOptions:(NSActivityOptions)options reason:(NSString*)reason SINCE(10.9);
- (void)endActivity:(id<NSObject>)activity SINCE(10.9);
@end

// Preferences

@interface NSUserDefaults : NSObject
@property(class, readonly, strong) NSUserDefaults* standardUserDefaults;
- (nullable instancetype)initWithSuiteName:(nullable NSString*)suiteName NS_DESIGNATED_INITIALIZER
    SINCE(10.9);
- (nullable id)objectForKey:(NSString*)key;
- (void)setObject:(nullable id)value forKey:(NSString*)key;
- (void)removeObjectForKey:(NSString*)key;
- (void)removePersistentDomainForName:(NSString*)domainName;
@end

// URL loading

CONSTANT(NSErrorDomain, NSURLErrorDomain);
enum : NSInteger { NSURLErrorBadURL = -1000, NSURLErrorNetworkConnectionLost = -1005 };

typedef NS_ENUM(NSUInteger, NSURLRequestCachePolicy) {
    NSURLRequestUseProtocolCachePolicy = 0,
    NSURLRequestReloadIgnoringLocalCacheData = 1,
};

@interface NSURLRequest : NSObject <NSCopying>
+ (instancetype)requestWithURL:(NSURL*)url
                   cachePolicy:(NSURLRequestCachePolicy)cachePolicy
               timeoutInterval:(NSTimeInterval)timeoutInterval;
@property(nullable, readonly, copy) NSURL* URL;
@property(nullable, readonly, copy) NSString* HTTPMethod;
@end

@interface NSMutableURLRequest : NSURLRequest
@property(copy) NSString* HTTPMethod;
@property(nullable, copy) NSData* HTTPBody;
- (void)setValue:(nullable NSString*)value forHTTPHeaderField:(NSString*)field;
@end

@interface NSURLResponse : NSObject <NSCopying>
@end

@interface NSHTTPURLResponse : NSURLResponse
@property(readonly) NSInteger statusCode;
@end

@class NSURLSession;
@class NSURLSessionTask;

@protocol NSURLSessionDelegate <NSObject>
@end

@protocol NSURLSessionTaskDelegate <NSURLSessionDelegate>
@optional
- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest* _Nullable))completionHandler;
@end

@interface NSURLSessionTask : NSObject <NSCopying>
@property(nullable, retain) id<NSURLSessionTaskDelegate> delegate SINCE(12.0);
@property(nullable, readonly, copy) NSURLRequest* originalRequest;
@property(nullable, readonly, copy) NSURLRequest* currentRequest;
@property(readonly) int64_t countOfBytesSent;
@property(readonly) int64_t countOfBytesExpectedToSend;
- (void)resume;
- (void)cancel;
@end

@interface NSURLSessionDataTask : NSURLSessionTask
@end

@interface NSURLSessionUploadTask : NSURLSessionDataTask
@end

@interface NSURLSession : NSObject
@property(class, readonly, strong) NSURLSession* sharedSession;
- (NSURLSessionDataTask*)dataTaskWithRequest:(NSURLRequest*)request
                           completionHandler:(void (^)(NSData* _Nullable data,
                                                       NSURLResponse* _Nullable response,
                                                       NSError* _Nullable error))completionHandler;
- (NSURLSessionUploadTask*)uploadTaskWithRequest:(NSURLRequest*)request
                                        fromFile:(NSURL*)file
                               completionHandler:(void (^)(NSData* _Nullable data,
                                                           NSURLResponse* _Nullable response,
                                                           NSError* _Nullable error))completionHandler;
@end

// The log

#pragma clang assume_nonnull end
