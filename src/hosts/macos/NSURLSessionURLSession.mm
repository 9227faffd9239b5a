#include "hosts/macos/NSURLSessionURLSession.h"

#include "hosts/macos/FoundationError.h"
#include "hosts/macos/FoundationText.h"
#include "hosts/macos/ProcessActivity.h"
#include "hosts/macos/UploadRedirects.h"

#include <memory>
#include <utility>

#import <Foundation/Foundation.h>

namespace cadora {

namespace {

using Handler = void (^)(NSData*, NSURLResponse*, NSError*);

// Nil when the platform takes the request's URL for none.
NSMutableURLRequest* nsRequest(const URLRequest& request) {
    NSURL* const url = nsURL(request.url);
    if (url == nil) {
        return nil;
    }
    NSMutableURLRequest* const result =
        [NSMutableURLRequest requestWithURL:url
                                cachePolicy:NSURLRequestUseProtocolCachePolicy
                            timeoutInterval:static_cast<NSTimeInterval>(request.timeoutInterval.count())];
    result.HTTPMethod = nsString(request.httpMethod);
    for (const auto& [field, value] : request.headers) {
        [result setValue:nsString(value) forHTTPHeaderField:nsString(field)];
    }
    if (!request.httpBody.empty()) {
        result.HTTPBody = [NSData dataWithBytes:request.httpBody.data() length:request.httpBody.size()];
    }
    return result;
}

URLResponse urlResponse(NSURLResponse* response) {
    if (![response isKindOfClass:[NSHTTPURLResponse class]]) {
        return {};
    }
    return {static_cast<NSHTTPURLResponse*>(response).statusCode};
}

// The platform's description tells neither the server nor the file. Its user info does, but with the URL's
// path and query, which carry the right to upload.
PlatformError transferError(NSError* error, const URL& url, const std::filesystem::path& file) {
    std::string message = url.authority();
    if (!file.empty()) {
        message += ", uploading “" + displayName(file) + "”";
    }
    const PlatformError plain = platformError(error);
    return {plain.domain(), plain.code(), message + ": " + plain.message()};
}

PlatformError answeredEarly(const URL& url, const std::filesystem::path& file) {
    return {stdString(NSURLErrorDomain), NSURLErrorNetworkConnectionLost,
            url.authority() + " answered before “" + displayName(file) + "” had been sent whole"};
}

// A length that the session doesn't know is below every count.
bool hasSentAll(NSURLSessionTask* task) {
    return task.countOfBytesSent >= task.countOfBytesExpectedToSend;
}

bool isSuccess(NSURLResponse* response) {
    return urlResponse(response).statusCode.value_or(0) / 100 == 2;
}

PlatformError notAURL(const URL& url) {
    return {stdString(NSURLErrorDomain), NSURLErrorBadURL, url.origin() + ": the address is not a URL"};
}

// What both kinds of task call at their end, on a thread of the session's. Everything by value: a block keeps
// a reference as a reference.
Handler completionHandler(MainActor* actor, URL url, std::filesystem::path file,
                          Completion<URLSession::Answer> completion) {
    const auto activity = std::make_shared<ProcessActivity>("Transferring a recording");
    return ^(NSData* data, NSURLResponse* response, NSError* error) {
      // Ends when the session is done with this block.
      (void)activity;
      auto result = std::make_shared<Result<URLSession::Answer>>();
      if (error != nil) {
          *result = failure<URLSession::Answer>(transferError(error, url, file));
      } else {
          *result = URLSession::Answer{stdString(data), urlResponse(response)};
      }
      actor->post([result, completion] { completion(std::move(*result)); });
    };
}

CancelAction resume(NSURLSessionTask* task) {
    [task resume];
    return [task] { [task cancel]; };
}

std::filesystem::path folderForLinks() {
    return std::filesystem::path(stdString(NSTemporaryDirectory())) / "com.norvelant.cadora.mac.uploads";
}

} // namespace

NSURLSessionURLSession::NSURLSessionURLSession(MainActor& mainActor)
    : mainActor_(mainActor), links_(folderForLinks()) {}

CancelAction NSURLSessionURLSession::data(URLRequest request, Completion<Answer> completion) {
    NSURLRequest* const prepared = nsRequest(request);
    if (prepared == nil) {
        mainActor_.post([url = request.url, completion] { completion(failure<Answer>(notAURL(url))); });
        return nullptr;
    }
    return resume([[NSURLSession sharedSession]
        dataTaskWithRequest:prepared
          completionHandler:completionHandler(&mainActor_, request.url, {}, completion)]);
}

CancelAction NSURLSessionURLSession::upload(URLRequest request, std::filesystem::path fromFile,
                                            Completion<Answer> completion) {
    NSURLRequest* const prepared = nsRequest(request);
    if (prepared == nil) {
        mainActor_.post([url = request.url, completion] { completion(failure<Answer>(notAURL(url))); });
        return nullptr;
    }
    const std::shared_ptr<UploadLink> kept = links_.link(fromFile);
    const Handler handler = completionHandler(&mainActor_, request.url, fromFile, completion);
    MainActor* const actor = &mainActor_;
    const URL url = request.url;
    __block NSURLSessionUploadTask* task = nil;
    const Handler handlerWithFile = ^(NSData* data, NSURLResponse* response, NSError* error) {
      // The name goes when the session is done with this block.
      (void)kept;
      NSURLSessionUploadTask* const ended = task;
      task = nil;
      if (error == nil && isSuccess(response) && !hasSentAll(ended)) {
          actor->post([=] { completion(failure<Answer>(answeredEarly(url, fromFile))); });
      } else {
          handler(data, response, error);
      }
    };
    task = [[NSURLSession sharedSession] uploadTaskWithRequest:prepared
                                                      fromFile:fileURL(kept ? kept->path() : fromFile)
                                             completionHandler:handlerWithFile];
    task.delegate = [[CadoraUploadRedirects alloc] init];
    return resume(task);
}

} // namespace cadora
