#include "hosts/linux/sign-in/BrowserWebAuthentication.h"

#include "base/ASCII.h"
#include "base/Error.h"
#include "hosts/linux/desktop/QtWindow.h"
#include "hosts/linux/desktop/ShowInFront.h"
#include "hosts/linux/sign-in/SignInSheet.h"

#include <QGuiApplication>
#include <QPointer>

#include <algorithm>
#include <chrono>
#include <utility>

namespace cadora {

namespace {

constexpr const char* ownScheme = "cadora";

// From the start, and again from each opening of the page: enough for an account's second factor and a
// password that has to be looked up.
constexpr std::chrono::minutes patience(15);

// Longer than any that the site sends.
constexpr std::size_t longestCallback = 16384;

// What the site redirects to: the scheme, the name of some place, and a query. Which name it is, and whether
// a path follows, is the site's to choose.
bool isCallback(const URL& url) {
    const std::string place = url.authority();
    const bool isName = !place.empty() && std::all_of(place.begin(), place.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
               c == '.';
    });
    return url.scheme() == ownScheme && isName && url.text().size() <= longestCallback &&
           url.text().substr(0, url.text().find('?')).find('@') == std::string::npos &&
           url.text().find('#') == std::string::npos && !url.queryItems().empty();
}

bool isWebPage(const URL& url) {
    return (url.scheme() == "https" || url.scheme() == "http") && !url.authority().empty();
}

std::exception_ptr cancellation(const char* reason = "The sign-in was cancelled.") {
    return std::make_exception_ptr(PlatformError(WebAuthenticationSession::errorDomain,
                                                 WebAuthenticationSession::canceledLogin, reason));
}

} // namespace

class BrowserWebAuthentication::Session : public WebAuthenticationSession,
                                          public std::enable_shared_from_this<Session> {
    // What does nothing once the visit has ended.
    template <class Function> auto guarded(Function function) {
        return [weak = weak_from_this(), function](const auto&... arguments) {
            const auto session = weak.lock();
            if (session && session->handler_) {
                function(arguments...);
            }
        };
    }

public:
    Session(BrowserWebAuthentication& owner, URL page, const std::string& callbackURLScheme,
            CompletionHandler handler)
        : owner_(&owner), page_(std::move(page)), scheme_(lowercased(callbackURLScheme)),
          handler_(std::move(handler)) {}

    void setPresentationContextProvider(PresentationContextProvider& provider) override {
        provider_ = &provider;
    }

    bool start() override {
        if (owner_ == nullptr || provider_ == nullptr || !handler_ || sheet_ || scheme_ != ownScheme ||
            !isWebPage(page_)) {
            return false;
        }
        const std::shared_ptr<Window> anchor = provider_->presentationAnchor();
        anchor_ = anchor;
        owner_->add(shared_from_this());
        auto* const window = dynamic_cast<QtWindow*>(anchor.get());
        sheet_ = new SignInSheet(window != nullptr ? &window->widget() : nullptr,
                                 guarded([this] { owner_->cancelOver(*this); }));
        startPatience();
        unlockKeyring();
        return true;
    }

    void cancel() override {
        if (sheet_ && handler_) {
            end(std::nullopt, cancellation());
        }
    }

    // Whether a callback would be an answer to this visit.
    bool awaitsCallback() const { return awaitsCallback_; }
    bool hasAnchorOf(const Session& other) const {
        return !anchor_.owner_before(other.anchor_) && !other.anchor_.owner_before(anchor_);
    }

    void end(std::optional<URL> callback, std::exception_ptr error) {
        const auto keepAlive = shared_from_this();
        leave();
        if (const auto handler = std::exchange(handler_, nullptr)) {
            handler(std::move(callback), std::move(error));
        }
    }

    // The program's end: nobody is told.
    void abandon() {
        handler_ = nullptr;
        delete sheet_;
        leave();
    }

    // The page stood in front of the window in which the sign-in's end is told.
    void showAnchorInFront() {
        auto* const window = dynamic_cast<QtWindow*>(anchor_.lock().get());
        if (window != nullptr && window->widget().isVisible()) {
            showInFront(window->widget());
        }
    }

    // A later visit over the same window shows its own sheet there.
    void hideSheet() { sheet_->dismiss(); }

private:
    // Without a keyring to write to, the sign-in would be forgotten in silence.
    void unlockKeyring() {
        // Also in place of what stood in the way before.
        sheet_->showStep("Preparing the sign-in…");
        callOff_ = owner_->keyring_.unlock(
            windowNumber(), guarded([this](const std::string& problem) {
                callOff_ = nullptr;
                if (problem.empty()) {
                    claimScheme(URLSchemeOwnership::Claim::ifFree);
                    return;
                }
                sheet_->showStep(
                    "Your sign-in is kept in this desktop’s keyring, which could not be opened: " + problem +
                        ".",
                    {"Try Again", guarded([this] { unlockKeyring(); })});
            }));
    }

    void claimScheme(URLSchemeOwnership::Claim claim) {
        const auto proceed = guarded([this](const URLSchemeOwnership::Owner& owner) { judge(owner); });
        owner_->background_.run([&actor = owner_->mainActor_, &scheme = owner_->scheme_, claim, proceed] {
            actor.post([owner = scheme.claim(claim), proceed] { proceed(owner); });
        });
    }

    void judge(const URLSchemeOwnership::Owner& owner) {
        using Kind = URLSchemeOwnership::Owner::Kind;
        using Claim = URLSchemeOwnership::Claim;
        switch (owner.kind) {
        case Kind::thisProgram:
            openPage();
            return;
        case Kind::anotherProgram:
            sheet_->showStep("Another program, “" + owner.name +
                                 "”, receives Cadora’s sign-in links on this desktop. The sign-in would end "
                                 "there and not come back to Cadora Helper.",
                             {"Use Cadora Helper", guarded([this] { claimScheme(Claim::always); })});
            return;
        case Kind::nobody:
            sheet_->showStep("Cadora Helper could not be made the program that receives Cadora’s sign-in "
                             "links on this desktop: " +
                                 owner.name + ".",
                             {"Try Again", guarded([this] { claimScheme(Claim::ifFree); })});
            return;
        }
    }

    void openPage() {
        awaitsCallback_ = true;
        startPatience();
        const auto again = guarded([this] { openPage(); });
        sheet_->showStep("The sign-in page opens in your browser. Go on there: this window closes by itself "
                         "once you have signed in.",
                         {"Open Page Again", again});
        owner_->browser_.open(page_, portalWindow(), guarded([this, again](const std::string& reason) {
                                  sheet_->showStep("Your browser could not be opened: " + reason +
                                                       ". You can open this page yourself:",
                                                   page_, {"Open Page Again", again});
                              }));
    }

    // A visit that nobody finishes is not left open to whatever callback comes some day.
    void startPatience() {
        stopPatience();
        const auto giveUp =
            guarded([this] { end(std::nullopt, cancellation("The sign-in was not finished in time.")); });
        impatience_ = owner_->clock_.sleep(patience, [giveUp](const auto&) { giveUp(); });
    }
    void stopPatience() {
        if (const auto stop = std::exchange(impatience_, nullptr)) {
            stop();
        }
    }

    void leave() {
        awaitsCallback_ = false;
        stopPatience();
        if (const auto callOff = std::exchange(callOff_, nullptr)) {
            callOff();
        }
        if (sheet_) {
            // This may be within its event.
            sheet_->dismiss();
            sheet_->deleteLater();
        }
        if (BrowserWebAuthentication* const owner = std::exchange(owner_, nullptr)) {
            owner->remove(*this);
        }
    }

    std::string windowNumber() const {
        const bool isX11 = QGuiApplication::platformName() == QLatin1String("xcb");
        return isX11 ? QString::number(sheet_->winId(), 16).toStdString() : std::string();
    }
    std::string portalWindow() const {
        const std::string number = windowNumber();
        return number.empty() ? number : "x11:" + number;
    }

    BrowserWebAuthentication* owner_;
    URL page_;
    std::string scheme_;
    CompletionHandler handler_;
    PresentationContextProvider* provider_ = nullptr;
    std::weak_ptr<Window> anchor_;
    QPointer<SignInSheet> sheet_;
    CancelAction callOff_;
    CancelAction impatience_;
    bool awaitsCallback_ = false;
};

BrowserWebAuthentication::BrowserWebAuthentication(MainActor& mainActor, BackgroundExecutor& background,
                                                   DBusApplication& services, KeyringUnlock& keyring,
                                                   URLSchemeOwnership& scheme, Browser& browser, Clock& clock)
    : mainActor_(mainActor), background_(background), services_(services), keyring_(keyring), scheme_(scheme),
      browser_(browser), clock_(clock) {
    services_.setURLHandler([this](const URL& url) { return receive(url); });
}

BrowserWebAuthentication::~BrowserWebAuthentication() {
    services_.setURLHandler(nullptr);
    for (const auto& session : std::exchange(sessions_, {})) {
        session->abandon();
    }
}

std::shared_ptr<WebAuthenticationSession>
BrowserWebAuthentication::makeSession(const URL& url, const std::string& callbackURLScheme,
                                      CompletionHandler handler) {
    return std::make_shared<Session>(*this, url, callbackURLScheme, std::move(handler));
}

URLReception BrowserWebAuthentication::receive(const URL& callback) {
    // Those that end take themselves out of the list.
    const auto sessions = sessions_;
    const auto latest = std::find_if(sessions.rbegin(), sessions.rend(),
                                     [](const auto& session) { return session->awaitsCallback(); });
    if (*isJudging_ || !isCallback(callback) || latest == sessions.rend()) {
        return URLReception::notAwaited;
    }
    for (const auto& session : sessions) {
        if (session != *latest && session->hasAnchorOf(**latest)) {
            session->end(std::nullopt, cancellation());
        }
    }
    (*latest)->showAnchorInFront();
    // One at a time: if this one signs the user in, its task ends the other visits before the next is looked
    // at.
    *isJudging_ = true;
    (*latest)->end(callback, nullptr);
    mainActor_.post([weak = std::weak_ptr(isJudging_)] {
        if (const auto isJudging = weak.lock()) {
            *isJudging = false;
        }
    });
    return URLReception::taken;
}

void BrowserWebAuthentication::add(std::shared_ptr<Session> session) {
    for (const auto& earlier : sessions_) {
        if (earlier->hasAnchorOf(*session)) {
            earlier->hideSheet();
        }
    }
    sessions_.push_back(std::move(session));
}

void BrowserWebAuthentication::remove(const Session& session) {
    std::erase_if(sessions_, [&](const auto& known) { return known.get() == &session; });
}

void BrowserWebAuthentication::cancelOver(const Session& cancelled) {
    for (const auto& session : std::vector(sessions_)) {
        if (session->hasAnchorOf(cancelled)) {
            session->end(std::nullopt, cancellation());
        }
    }
}

} // namespace cadora
