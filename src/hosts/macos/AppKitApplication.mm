#include "hosts/macos/AppKitApplication.h"

#include "hosts/macos/AppKitStatusItem.h"
#include "hosts/macos/AppKitWindow.h"
#include "hosts/macos/FoundationText.h"

#include <utility>

namespace cadora {

namespace {

static_assert(
    static_cast<int>(Application::ActivationPolicy::regular) == NSApplicationActivationPolicyRegular &&
    static_cast<int>(Application::ActivationPolicy::accessory) == NSApplicationActivationPolicyAccessory &&
    static_cast<int>(Application::ActivationPolicy::prohibited) == NSApplicationActivationPolicyProhibited);

class AppKitPasteboard : public Pasteboard {
public:
    explicit AppKitPasteboard(NSPasteboard* pasteboard) : pasteboard_(pasteboard) {}

    std::vector<URL> readURLs() const override {
        std::vector<URL> urls;
        for (id object in [pasteboard_ readObjectsForClasses:@[ [NSURL class] ] options:nil]) {
            if ([object isKindOfClass:[NSURL class]]) {
                if (auto url = urlOf(object)) {
                    urls.push_back(std::move(*url));
                }
            }
        }
        return urls;
    }

private:
    // File managers hand over references to files, which have neither path nor name until they are resolved.
    // One whose file is gone can't be; it goes on as it is, and staging tells what is wrong with it.
    static std::optional<URL> urlOf(NSURL* url) {
        NSURL* const resolved = url.isFileURL ? url.filePathURL : nil;
        NSString* const path = resolved.path;
        return path ? URL::file(stdString(path)) : URL::parse(stdString(url.absoluteString));
    }

    NSPasteboard* pasteboard_;
};

} // namespace

} // namespace cadora

// What the Services system calls.
@interface CadoraServicesProvider : NSObject
// The provider must outlive this object.
- (instancetype)initWithProvider:(cadora::ServicesProvider*)provider NS_DESIGNATED_INITIALIZER;
- (instancetype)init NS_UNAVAILABLE;
- (void)sendToCadora:(NSPasteboard*)pasteboard
            userData:(NSString*)userData
               error:(NSString* __autoreleasing*)error;
@end

@implementation CadoraServicesProvider {
    cadora::ServicesProvider* _provider;
}

- (instancetype)initWithProvider:(cadora::ServicesProvider*)provider {
    if (self = [super init]) {
        _provider = provider;
    }
    return self;
}

- (void)sendToCadora:(NSPasteboard*)pasteboard
            userData:(NSString*)userData
               error:(NSString* __autoreleasing*)error {
    std::string message;
    _provider->sendToCadora(cadora::AppKitPasteboard(pasteboard),
                            userData ? std::optional(cadora::stdString(userData)) : std::nullopt, message);
    if (error != nullptr && !message.empty()) {
        *error = cadora::nsString(message);
    }
}

@end

namespace cadora {

AppKitApplication::AppKitApplication(MainActor& mainActor)
    : application_([NSApplication sharedApplication]), alerts_(mainActor) {}

void AppKitApplication::setActivationPolicy(ActivationPolicy policy) {
    [application_ setActivationPolicy:static_cast<NSApplicationActivationPolicy>(policy)];
}

void AppKitApplication::setServicesProvider(ServicesProvider& provider) {
    servicesProvider_ = [[CadoraServicesProvider alloc] initWithProvider:&provider];
    application_.servicesProvider = servicesProvider_;
}

void AppKitApplication::updateDynamicServices() {
    NSUpdateDynamicServices();
}

void AppKitApplication::activateIgnoringOtherApps() {
    [application_ activateIgnoringOtherApps:YES];
}

CancelAction AppKitApplication::runModal(Alert alert, Completion<int> completion) {
    static_assert(Alert::firstButtonReturn == NSAlertFirstButtonReturn);
    return alerts_.add(std::move(alert), std::move(completion));
}

std::unique_ptr<StatusItem> AppKitApplication::makeStatusItem() {
    return std::make_unique<AppKitStatusItem>();
}

std::shared_ptr<Window> AppKitApplication::makeWindow(const WindowDescription& description,
                                                      WindowDelegate* delegate) {
    return std::make_shared<AppKitWindow>(description, delegate);
}

std::vector<std::shared_ptr<Window>> AppKitApplication::windows() {
    std::vector<std::shared_ptr<Window>> result;
    for (NSWindow* window in application_.windows) {
        result.push_back(std::make_shared<AppKitWindow>(window));
    }
    return result;
}

std::filesystem::path AppKitApplication::bundlePath() {
    return stdString([NSBundle mainBundle].bundlePath);
}

std::filesystem::path AppKitApplication::registrationToolPath() {
    return "/System/Library/Frameworks/CoreServices.framework/Frameworks/LaunchServices.framework/Support/"
           "lsregister";
}

void AppKitApplication::terminate() {
    [application_ terminate:nil];
}

} // namespace cadora
