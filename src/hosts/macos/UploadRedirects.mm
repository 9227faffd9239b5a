#include "hosts/macos/UploadRedirects.h"

@implementation CadoraUploadRedirects

- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest* _Nullable))completionHandler {
    NSURLRequest* const before = task.currentRequest;
    NSString* const method = task.originalRequest.HTTPMethod;
    const BOOL repeats = [request.HTTPMethod isEqualToString:method];
    const BOOL leavesTLS =
        [before.URL.scheme isEqualToString:@"https"] && ![request.URL.scheme isEqualToString:@"https"];
    completionHandler(repeats && !leavesTLS ? request : nil);
}

@end
