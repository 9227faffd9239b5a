// error: 'init' is unavailable
#import <AVFoundation/AVFoundation.h>

AVAssetExportSession* session() {
    return [[AVAssetExportSession alloc] init];
}
