// error: method 'presentationAnchorForWebAuthenticationSession:' in protocol
// 'ASWebAuthenticationPresentationContextProviding' not implemented
#import <AuthenticationServices/AuthenticationServices.h>

@interface Provider : NSObject <ASWebAuthenticationPresentationContextProviding>
@end

@implementation Provider
@end
