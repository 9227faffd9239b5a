#pragma once

#import <Foundation/Foundation.h>

// Follows an upload's redirects only where the file goes along: a request whose method has changed is one
// without it, and its success would be taken for the file's. Nor does an upload go from https to http. The
// redirect itself is the answer then.
@interface CadoraUploadRedirects : NSObject <NSURLSessionTaskDelegate>
@end
