#pragma once

#include "hosts/linux/bus/DBusApplication.h"
#include "hosts/linux/keyring/KeyringUnlock.h"
#include "hosts/linux/sign-in/Browser.h"
#include "hosts/linux/sign-in/URLSchemeOwnership.h"
#include "platform/BackgroundExecutor.h"
#include "platform/Clock.h"
#include "platform/WebAuthentication.h"

#include <memory>
#include <vector>

namespace cadora {

// Visits to a sign-in page in the user's own browser. The page leads to a URL of the program's scheme, which
// the desktop hands to a second start of the program and that one to this. Meanwhile a sheet over the anchor
// says so.
//
// The callback says nothing of the visit that it belongs to. It goes to the latest one; earlier ones over the
// same window end as cancelled with it, since the user has one sign-in in mind there, and those over other
// windows go on waiting, until their owner cancels them or 15 minutes have passed since the page was opened
// last. A URL that doesn't have the form of the site's redirect, or is longer than 16 KiB, is no callback.
//
// Main thread only. Handlers are called on it, never within start(), and not once this is gone.
class BrowserWebAuthentication : public WebAuthentication {
public:
    // What is passed by reference must outlive this. `services` hands its URLs here from now on.
    BrowserWebAuthentication(MainActor& mainActor, BackgroundExecutor& background, DBusApplication& services,
                             KeyringUnlock& keyring, URLSchemeOwnership& scheme, Browser& browser,
                             Clock& clock);
    BrowserWebAuthentication(const BrowserWebAuthentication&) = delete;
    BrowserWebAuthentication& operator=(const BrowserWebAuthentication&) = delete;
    ~BrowserWebAuthentication() override;

    std::shared_ptr<WebAuthenticationSession>
    makeSession(const URL& url, const std::string& callbackURLScheme, CompletionHandler handler) override;

private:
    class Session;

    URLReception receive(const URL& callback);
    void add(std::shared_ptr<Session> session);
    void remove(const Session& session);
    void cancelOver(const Session& cancelled);

    MainActor& mainActor_;
    BackgroundExecutor& background_;
    DBusApplication& services_;
    KeyringUnlock& keyring_;
    URLSchemeOwnership& scheme_;
    Browser& browser_;
    Clock& clock_;
    // From a callback on until the task that it went to has had its turn.
    std::shared_ptr<bool> isJudging_ = std::make_shared<bool>(false);
    // Those under way, the latest last.
    std::vector<std::shared_ptr<Session>> sessions_;
};

} // namespace cadora
