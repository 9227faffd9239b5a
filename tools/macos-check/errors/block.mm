// error: cannot initialize a parameter of type 'void (^ _Nonnull)(NSData *
#import <Foundation/Foundation.h>

void send(NSURLRequest* request) {
    [[NSURLSession sharedSession] dataTaskWithRequest:request
                                    completionHandler:^(NSData*, NSError*){
                                    }];
}
