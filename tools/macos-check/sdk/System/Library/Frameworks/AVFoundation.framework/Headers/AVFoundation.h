#pragma once

#import <CoreMedia/CoreMedia.h>
#import <Foundation/Foundation.h>

#pragma clang assume_nonnull begin

typedef NSString* AVFileType;
CONSTANT(AVFileType, AVFileTypeAppleM4A) SINCE(10.7);
CONSTANT(NSString*, AVAssetExportPresetAppleM4A) SINCE(10.7);

typedef NS_ENUM(NSInteger, AVKeyValueStatus) {
    AVKeyValueStatusUnknown = 0,
    AVKeyValueStatusLoading = 1,
    AVKeyValueStatusLoaded = 2,
    AVKeyValueStatusFailed = 3,
    AVKeyValueStatusCancelled = 4,
};

SINCE(10.7)
@interface AVAsset : NSObject <NSCopying>
@property(readonly) CMTime duration;
- (void)cancelLoading;
- (AVKeyValueStatus)statusOfValueForKey:(NSString*)key error:(NSError* _Nullable* _Nullable)error;
- (void)loadValuesAsynchronouslyForKeys:(NSArray<NSString*>*)keys
                      completionHandler:(nullable void (^)(void))handler;
@end

SINCE(10.7)
@interface AVURLAsset : AVAsset
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)URLAssetWithURL:(NSURL*)url options:(nullable NSDictionary<NSString*, id>*)options;
@end

typedef NS_ENUM(NSInteger, AVAssetExportSessionStatus) {
    AVAssetExportSessionStatusUnknown = 0,
    AVAssetExportSessionStatusWaiting = 1,
    AVAssetExportSessionStatusExporting = 2,
    AVAssetExportSessionStatusCompleted = 3,
    AVAssetExportSessionStatusFailed = 4,
    AVAssetExportSessionStatusCancelled = 5,
};

SINCE(10.7)
@interface AVAssetExportSession : NSObject
- (instancetype)init NS_UNAVAILABLE;
- (nullable instancetype)initWithAsset:(AVAsset*)asset
                            presetName:(NSString*)presetName NS_DESIGNATED_INITIALIZER;
@property(nullable, copy) NSURL* outputURL;
@property(nullable, copy) AVFileType outputFileType;
@property(readonly) AVAssetExportSessionStatus status;
@property(nullable, readonly) NSError* error;
- (void)exportAsynchronouslyWithCompletionHandler:(void (^)(void))handler;
- (void)cancelExport;
@end

#pragma clang assume_nonnull end
