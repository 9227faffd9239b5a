#include "hosts/macos/AuthenticationServicesWebAuthentication.h"

#include "hosts/macos/AppKitWindow.h"
#include "hosts/macos/FoundationError.h"
#include "hosts/macos/FoundationText.h"

#include <mutex>
#include <utility>

#include <dispatch/dispatch.h>

#import <AppKit/AppKit.h>
#import <AuthenticationServices/AuthenticationServices.h>

@interface CadoraPresentationContextProvider : NSObject <ASWebAuthenticationPresentationContextProviding>
// The provider must outlive the session's presentation.
- (instancetype)initWithProvider:(cadora::PresentationContextProvider*)provider NS_DESIGNATED_INITIALIZER;
- (instancetype)init NS_UNAVAILABLE;
@end

@implementation CadoraPresentationContextProvider {
    cadora::PresentationContextProvider* _provider;
}

- (instancetype)initWithProvider:(cadora::PresentationContextProvider*)provider {
    if (self = [super init]) {
        _provider = provider;
    }
    return self;
}

- (ASPresentationAnchor)presentationAnchorForWebAuthenticationSession:(ASWebAuthenticationSession*)session {
    // Every window of this host is an NSWindow.
    return std::static_pointer_cast<cadora::AppKitWindow>(_provider->presentationAnchor())->nsWindow();
}

@end

namespace cadora {

namespace {

// One visit to the page. What the platform refers to weakly, or may let go of early, is kept until the visit
// has ended; objects are touched on the main thread only.
class Visit : public std::enable_shared_from_this<Visit> {
public:
    explicit Visit(WebAuthentication::CompletionHandler handler) : handler_(std::move(handler)) {}

    // Nil for a URL that the platform doesn't take: such a visit can't start.
    void prepare(NSURL* url, NSString* callbackURLScheme) {
        if (url == nil) {
            return;
        }
        const auto visit = shared_from_this();
        session_ = [[ASWebAuthenticationSession alloc]
                  initWithURL:url
            callbackURLScheme:callbackURLScheme
            completionHandler:^(NSURL* callbackURL, NSError* error) {
              visit->end(callbackURL ? URL::parse(stdString(callbackURL.absoluteString)) : std::nullopt,
                         error ? std::make_exception_ptr(platformError(error)) : nullptr);
              dispatch_async(dispatch_get_main_queue(), ^{
                visit->letGo();
              });
            }];
    }

    void setContextProvider(CadoraPresentationContextProvider* contextProvider) {
        contextProvider_ = contextProvider;
        session_.presentationContextProvider = contextProvider;
    }

    bool start() {
        const bool isStarted = [session_ start];
        if (!isStarted) {
            letGo();
        }
        std::optional<End> endedEarly;
        {
            const std::lock_guard guard(mutex_);
            state_ = isStarted ? State::started : State::ended;
            endedEarly = std::exchange(endedEarly_, std::nullopt);
        }
        if (isStarted && endedEarly) {
            end(std::move(endedEarly->callbackURL), std::move(endedEarly->error));
        }
        return isStarted;
    }

    // Whether the platform calls its handler for this is nowhere written: the visit's end comes once.
    void cancel() {
        {
            const std::lock_guard guard(mutex_);
            if (state_ != State::started) {
                return;
            }
        }
        [session_ cancel];
        end(std::nullopt, std::make_exception_ptr(PlatformError(WebAuthenticationSession::errorDomain,
                                                                WebAuthenticationSession::canceledLogin,
                                                                "The sign-in was cancelled.")));
        letGo();
    }

    // For a visit that nobody started: what it holds holds it.
    void abandon() {
        const std::lock_guard guard(mutex_);
        if (state_ == State::starting) {
            letGo();
        }
    }

private:
    enum class State { starting, started, ended };
    struct End {
        std::optional<URL> callbackURL;
        std::exception_ptr error;
    };

    // From any thread. A visit that can't start may end before the platform says so: whoever starts it hears
    // of one of the two.
    void end(std::optional<URL> callbackURL, std::exception_ptr error) {
        {
            const std::lock_guard guard(mutex_);
            if (state_ == State::starting) {
                endedEarly_ = End{std::move(callbackURL), std::move(error)};
                return;
            }
            if (std::exchange(state_, State::ended) == State::ended) {
                return;
            }
        }
        handler_(std::move(callbackURL), std::move(error));
    }

    void letGo() {
        session_ = nil;
        contextProvider_ = nil;
    }

    WebAuthentication::CompletionHandler handler_;
    ASWebAuthenticationSession* session_ = nil;
    CadoraPresentationContextProvider* contextProvider_ = nil;
    std::mutex mutex_;
    State state_ = State::starting;
    std::optional<End> endedEarly_;
};

class AuthenticationServicesSession : public WebAuthenticationSession {
public:
    explicit AuthenticationServicesSession(std::shared_ptr<Visit> visit) : visit_(std::move(visit)) {}
    AuthenticationServicesSession(const AuthenticationServicesSession&) = delete;
    AuthenticationServicesSession& operator=(const AuthenticationServicesSession&) = delete;
    ~AuthenticationServicesSession() override { visit_->abandon(); }

    void setPresentationContextProvider(PresentationContextProvider& provider) override {
        visit_->setContextProvider([[CadoraPresentationContextProvider alloc] initWithProvider:&provider]);
    }

    bool start() override { return visit_->start(); }
    void cancel() override { visit_->cancel(); }

private:
    std::shared_ptr<Visit> visit_;
};

} // namespace

std::shared_ptr<WebAuthenticationSession>
AuthenticationServicesWebAuthentication::makeSession(const URL& url, const std::string& callbackURLScheme,
                                                     CompletionHandler handler) {
    const auto visit = std::make_shared<Visit>(std::move(handler));
    visit->prepare(nsURL(url), nsString(callbackURLScheme));
    return std::make_shared<AuthenticationServicesSession>(visit);
}

} // namespace cadora
