#include "hosts/linux/sign-in/BrowserWebAuthentication.h"

#include "base/Error.h"
#include "fakes/InlineBackgroundExecutor.h"
#include "fakes/ManualClock.h"
#include "fakes/Recorders.h"
#include "hosts/linux/desktop/QtWindow.h"
#include "hosts/linux/sign-in/SignInSheet.h"
#include "hosts/linux/system/QtMainActor.h"
#include "linux/PrivateBus.h"
#include "linux/desktop/Widgets.h"

#include <QPushButton>
#include <QTest>

#include <doctest/doctest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

using Owner = URLSchemeOwnership::Owner;

constexpr const char* page = "https://cadora.example/auth/apple/desktop";
constexpr const char* callback = "cadora://callback?token=t&user_id=1";

class FakeBrowser : public Browser {
public:
    std::vector<std::string> opened;
    FailureHandler failure;

    void open(const URL& url, const std::string&, FailureHandler handler) override {
        opened.push_back(url.text());
        failure = std::move(handler);
    }
};

// A keyring that is open, unless the test answers for it.
class FakeKeyring : public KeyringUnlock {
public:
    bool answers = true;
    int calledOff = 0;
    std::deque<Handler> handlers;

    CancelAction unlock(const std::string&, Handler handler) override {
        if (answers) {
            QMetaObject::invokeMethod(qApp, [handler] { handler(""); }, Qt::QueuedConnection);
        } else {
            handlers.push_back(std::move(handler));
        }
        return [this] { ++calledOff; };
    }
};

class FakeScheme : public URLSchemeOwnership {
public:
    Owner ifFree{Owner::Kind::thisProgram, {}};
    std::vector<Claim> claims;

    Owner claim(Claim claim) override {
        claims.push_back(claim);
        return claim == Claim::always ? Owner{Owner::Kind::thisProgram, {}} : ifFree;
    }
};

class FixedAnchor : public PresentationContextProvider {
public:
    explicit FixedAnchor(std::shared_ptr<Window> window) : window_(std::move(window)) {}
    std::shared_ptr<Window> presentationAnchor() override { return window_; }

private:
    std::shared_ptr<Window> window_;
};

// One visit and how it ended.
struct Visit {
    explicit Visit(std::shared_ptr<Window> window) : anchor(std::move(window)) {}

    FixedAnchor anchor;
    std::shared_ptr<WebAuthenticationSession> session;
    std::vector<std::string> ends;
};

struct Fixture {
    Widgets widgets;
    QtMainActor mainActor;
    InlineBackgroundExecutor background;
    PrivateBus bus;
    RecordingSystemLog log;
    DBusApplication services{bus.connect(), log};
    FakeKeyring keyring;
    FakeScheme scheme;
    FakeBrowser browser;
    ManualClock clock;
    std::unique_ptr<BrowserWebAuthentication> authentication = std::make_unique<BrowserWebAuthentication>(
        mainActor, background, services, keyring, scheme, browser, clock);

    static std::shared_ptr<QtWindow> makeWindow() {
        auto window = std::make_shared<QtWindow>(WindowDescription{460, 520, "Cadora Helper"}, nullptr);
        window->center();
        window->makeKeyAndOrderFront();
        return window;
    }
    std::shared_ptr<QtWindow> window = makeWindow();

    std::unique_ptr<Visit> make(const std::string& url = page, const std::string& callbackScheme = "cadora",
                                std::shared_ptr<Window> anchor = nullptr) {
        auto visit = std::make_unique<Visit>(anchor ? std::move(anchor) : window);
        visit->session = authentication->makeSession(
            URL::constant(url), callbackScheme,
            [&ends = visit->ends](std::optional<URL> answer, std::exception_ptr error) {
                ends.push_back(answer ? answer->text() : error ? errorText(error) : "nothing");
            });
        visit->session->setPresentationContextProvider(visit->anchor);
        return visit;
    }

    // A visit whose page is open.
    std::unique_ptr<Visit> begin(std::shared_ptr<Window> anchor = nullptr) {
        auto visit = make(page, "cadora", std::move(anchor));
        REQUIRE(visit->session->start());
        settle();
        return visit;
    }

    // Each step up to the page takes a turn of its own.
    void settle() {
        for (int turn = 0; turn < 4; ++turn) {
            widgets.loop.runPending();
        }
    }

    static std::vector<SignInSheet*> sheets() {
        std::vector<SignInSheet*> found;
        for (QWidget* const widget : QApplication::topLevelWidgets()) {
            if (auto* const sheet = dynamic_cast<SignInSheet*>(widget); sheet && sheet->isVisible()) {
                found.push_back(sheet);
            }
        }
        return found;
    }
    static SignInSheet& sheet() {
        if (sheets().size() != 1) {
            throw std::runtime_error("there are " + std::to_string(sheets().size()) + " sheets");
        }
        return *sheets().front();
    }
    void press(const char* title) {
        for (QPushButton* const button : Widgets::visible<QPushButton>(sheet())) {
            if (button->text() == title) {
                button->click();
                settle();
                return;
            }
        }
        throw std::runtime_error("no such button");
    }
    static bool says(const std::string& text) {
        const auto texts = Widgets::texts(sheet());
        return std::any_of(texts.begin(), texts.end(),
                           [&](const std::string& shown) { return shown.find(text) != std::string::npos; });
    }
    static const std::vector<std::string>& cancelled() {
        static const std::vector<std::string> ends{"The sign-in was cancelled."};
        return ends;
    }
};

} // namespace

TEST_CASE("a sign-in opens the page, shows a sheet over its window, and ends with the callback") {
    Fixture fixture;
    const auto visit = fixture.begin();
    CHECK(fixture.browser.opened == std::vector<std::string>{page});
    CHECK(fixture.scheme.claims == std::vector{URLSchemeOwnership::Claim::ifFree});
    CHECK(fixture.window->widget().frameGeometry().contains(Fixture::sheet().frameGeometry().center()));
    CHECK(
        Widgets::texts(Fixture::sheet()) ==
        std::vector<std::string>{"The sign-in page opens in your browser. Go on there: this window closes by "
                                 "itself once you have signed in.",
                                 "Open Page Again", "Cancel"});
    Widgets::savePicture(Fixture::sheet(), "sign-in-sheet");
    CHECK(visit->ends.empty());
    CHECK(fixture.services.open({callback}).empty());
    CHECK(visit->ends == std::vector<std::string>{callback});
    CHECK(Fixture::sheets().empty());
    CHECK(fixture.log.lines.empty());
}

TEST_CASE("a callback that nobody waits for is dropped and logged without what it carries") {
    Fixture fixture;
    const std::vector<std::string> dropped{
        "[Cadora Helper] dropped a URL that nobody waits for: cadora://callback"};
    SUBCASE("before any sign-in") {
        fixture.services.open({callback});
    }
    SUBCASE("before the page is opened") {
        fixture.keyring.answers = false;
        const auto visit = fixture.make();
        REQUIRE(visit->session->start());
        fixture.services.open({callback});
        CHECK(visit->ends.empty());
    }
    SUBCASE("after the answer") {
        const auto visit = fixture.begin();
        fixture.services.open({"cadora://callback?token=first&user_id=1"});
        fixture.services.open({callback});
        CHECK(visit->ends == std::vector<std::string>{"cadora://callback?token=first&user_id=1"});
    }
    SUBCASE("after the user has cancelled") {
        const auto visit = fixture.begin();
        fixture.press("Cancel");
        fixture.services.open({callback});
        CHECK(visit->ends == Fixture::cancelled());
    }
    SUBCASE("once sign-ins can't be presented any more") {
        const auto visit = fixture.begin();
        fixture.authentication.reset();
        fixture.services.open({callback});
        CHECK(visit->ends.empty());
    }
    CHECK(fixture.log.lines == dropped);
}

TEST_CASE("cancelling ends the sign-in with the platform's own error, once") {
    Fixture fixture;
    std::exception_ptr error;
    Visit visit(fixture.window);
    int ends = 0;
    visit.session = fixture.authentication->makeSession(URL::constant(page), "cadora",
                                                        [&](const auto&, std::exception_ptr reason) {
                                                            ++ends;
                                                            error = std::move(reason);
                                                        });
    visit.session->setPresentationContextProvider(visit.anchor);
    REQUIRE(visit.session->start());
    fixture.settle();
    SUBCASE("by its button") {
        fixture.press("Cancel");
    }
    SUBCASE("by closing the sheet") {
        Fixture::sheet().close();
    }
    SUBCASE("by Escape") {
        QTest::keyClick(&Fixture::sheet(), Qt::Key_Escape);
    }
    fixture.settle();
    CHECK(ends == 1);
    CHECK_THROWS_AS(std::rethrow_exception(error), PlatformError);
    try {
        std::rethrow_exception(error);
    } catch (const PlatformError& platformError) {
        CHECK(platformError.domain() == WebAuthenticationSession::errorDomain);
        CHECK(platformError.code() == WebAuthenticationSession::canceledLogin);
    }
    CHECK(Fixture::sheets().empty());
}

TEST_CASE("only pages of the web are opened, and only the program's own scheme comes back") {
    Fixture fixture;
    for (const char* url :
         {"file:///etc/passwd", "cadora://callback", "javascript:alert(1)", "https:", "page"}) {
        CAPTURE(url);
        CHECK_FALSE(fixture.make(url)->session->start());
    }
    CHECK_FALSE(fixture.make(page, "another")->session->start());
    CHECK(fixture.make("http://127.0.0.1:4711/auth", "CADORA")->session->start());
    fixture.settle();
    CHECK(fixture.browser.opened == std::vector<std::string>{"http://127.0.0.1:4711/auth"});
}

TEST_CASE("a session can be started once") {
    Fixture fixture;
    const auto visit = fixture.begin();
    CHECK_FALSE(visit->session->start());
    fixture.services.open({callback});
    CHECK_FALSE(visit->session->start());
    CHECK(visit->ends == std::vector<std::string>{callback});
}

TEST_CASE("the page can be opened again, and by hand where no browser starts") {
    Fixture fixture;
    const auto visit = fixture.begin();
    fixture.press("Open Page Again");
    CHECK(fixture.browser.opened.size() == 2);
    fixture.browser.failure("no program for web pages was found");
    CHECK(Fixture::says("could not be opened: no program for web pages was found."));
    CHECK(Fixture::says(page));
    Widgets::savePicture(Fixture::sheet(), "sign-in-sheet-no-browser");
    fixture.press("Open Page Again");
    CHECK(fixture.browser.opened.size() == 3);
    CHECK_FALSE(Fixture::says(page));
    fixture.browser.failure("no program for web pages was found");
    fixture.services.open({callback});
    CHECK(visit->ends == std::vector<std::string>{callback});
}

TEST_CASE("where another program has the scheme, the sheet says so until the user decides") {
    Fixture fixture;
    fixture.scheme.ifFree = {Owner::Kind::anotherProgram, "Other & Sons"};
    const auto visit = fixture.begin();
    CHECK(fixture.browser.opened.empty());
    CHECK(Fixture::says("Another program, “Other & Sons”, receives Cadora’s sign-in links"));
    Widgets::savePicture(Fixture::sheet(), "sign-in-sheet-other-program");
    SUBCASE("for this program") {
        fixture.press("Use Cadora Helper");
        CHECK(fixture.scheme.claims.back() == URLSchemeOwnership::Claim::always);
        CHECK(fixture.browser.opened == std::vector<std::string>{page});
    }
    SUBCASE("against it") {
        fixture.press("Cancel");
        CHECK(fixture.browser.opened.empty());
        CHECK(visit->ends == Fixture::cancelled());
    }
}

TEST_CASE("where the scheme can't be had, the sheet says why and tries again") {
    Fixture fixture;
    fixture.scheme.ifFree = {Owner::Kind::nobody, "the disk is full"};
    const auto visit = fixture.begin();
    CHECK(Fixture::says("the disk is full."));
    fixture.scheme.ifFree = {Owner::Kind::thisProgram, {}};
    fixture.press("Try Again");
    CHECK(fixture.browser.opened == std::vector<std::string>{page});
}

TEST_CASE("a keyring that stays locked is told before the browser opens, and asked again") {
    Fixture fixture;
    fixture.keyring.answers = false;
    const auto visit = fixture.begin();
    REQUIRE(fixture.keyring.handlers.size() == 1);
    fixture.keyring.handlers[0]("it stayed locked");
    CHECK(Fixture::says("keyring, which could not be opened: it stayed locked."));
    Widgets::savePicture(Fixture::sheet(), "sign-in-sheet-keyring");
    CHECK(fixture.browser.opened.empty());
    fixture.press("Try Again");
    REQUIRE(fixture.keyring.handlers.size() == 2);
    fixture.keyring.handlers[1]("");
    fixture.settle();
    CHECK(fixture.browser.opened == std::vector<std::string>{page});
}

TEST_CASE("cancelling calls the keyring's question off, and its late answer changes nothing") {
    Fixture fixture;
    fixture.keyring.answers = false;
    const auto visit = fixture.begin();
    fixture.press("Cancel");
    CHECK(fixture.keyring.calledOff == 1);
    fixture.keyring.handlers[0]("");
    fixture.settle();
    CHECK(fixture.browser.opened.empty());
    CHECK(visit->ends == Fixture::cancelled());
}

TEST_CASE("of two sign-ins over one window the later gets the callback, and the earlier ends before it") {
    Fixture fixture;
    const auto earlier = fixture.begin();
    const auto later = fixture.begin();
    CHECK(Fixture::sheets().size() == 1);
    CHECK(fixture.browser.opened.size() == 2);
    SUBCASE("by the callback") {
        fixture.services.open({callback});
        CHECK(earlier->ends == Fixture::cancelled());
        CHECK(later->ends == std::vector<std::string>{callback});
    }
    SUBCASE("by cancelling") {
        fixture.press("Cancel");
        CHECK(earlier->ends == Fixture::cancelled());
        CHECK(later->ends == Fixture::cancelled());
    }
    CHECK(Fixture::sheets().empty());
}

TEST_CASE("of sign-ins over two windows the later gets the callback, and the other goes on waiting") {
    Fixture fixture;
    const auto earlier = fixture.begin();
    const auto later = fixture.begin(Fixture::makeWindow());
    CHECK(Fixture::sheets().size() == 2);
    fixture.services.open({callback});
    CHECK(later->ends == std::vector<std::string>{callback});
    CHECK(earlier->ends.empty());
    CHECK(Fixture::sheets().size() == 1);
    fixture.settle();
    fixture.services.open({"cadora://callback?token=second&user_id=1"});
    CHECK(earlier->ends == std::vector<std::string>{"cadora://callback?token=second&user_id=1"});
}

TEST_CASE("closing the window leaves the sheet, and the sign-in can complete") {
    Fixture fixture;
    const auto visit = fixture.begin();
    fixture.window->close();
    fixture.settle();
    CHECK(Fixture::sheets().size() == 1);
    CHECK(visit->ends.empty());
    fixture.services.open({callback});
    CHECK(visit->ends == std::vector<std::string>{callback});
}

TEST_CASE("a released session still ends with the callback") {
    Fixture fixture;
    const auto visit = fixture.begin();
    visit->session.reset();
    fixture.services.open({callback});
    CHECK(visit->ends == std::vector<std::string>{callback});
}

TEST_CASE("the program's end closes the sheets, and nobody is told") {
    Fixture fixture;
    fixture.keyring.answers = false;
    const auto visit = fixture.begin();
    fixture.authentication.reset();
    CHECK(Fixture::sheets().empty());
    CHECK(fixture.keyring.calledOff == 1);
    fixture.keyring.handlers[0]("");
    fixture.settle();
    CHECK(visit->ends.empty());
}

TEST_CASE("the sheet takes the keyboard from nobody, and grows with the desktop's font") {
    Fixture fixture;
    const auto visit = fixture.begin();
    CHECK(Fixture::sheet().testAttribute(Qt::WA_ShowWithoutActivating));
    CHECK_FALSE(Fixture::sheet().isModal());
    const int before = Fixture::sheet().width();
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 20));
    fixture.settle();
    CHECK(Fixture::sheet().width() >= 2 * before);
    for (QPushButton* const button : Widgets::visible<QPushButton>(Fixture::sheet())) {
        CHECK(button->size().expandedTo(button->sizeHint()) == button->size());
        CHECK(Fixture::sheet().rect().contains(button->geometry()));
    }
    for (QLabel* const label : Widgets::visible<QLabel>(Fixture::sheet())) {
        CHECK(label->visibleRegion().boundingRect() == label->rect());
    }
    Widgets::savePicture(Fixture::sheet(), "sign-in-sheet-large-font");
}

TEST_CASE(
    "a sign-in that nobody finishes ends by itself, counted from the last time that its page was opened") {
    using namespace std::chrono_literals;
    Fixture fixture;
    const std::vector<std::string> late{"The sign-in was not finished in time."};
    SUBCASE("while the browser is open") {
        const auto visit = fixture.begin();
        fixture.clock.advance(14min);
        fixture.press("Open Page Again");
        fixture.clock.advance(14min);
        CHECK(visit->ends.empty());
        fixture.clock.advance(1min);
        CHECK(visit->ends == late);
        CHECK(Fixture::sheets().empty());
        fixture.services.open({callback});
        CHECK(visit->ends == late);
    }
    SUBCASE("while the keyring asks") {
        fixture.keyring.answers = false;
        const auto visit = fixture.begin();
        fixture.clock.advance(15min);
        CHECK(visit->ends == late);
    }
    CHECK(fixture.clock.sleeperCount() == 0);
}

TEST_CASE("a callback that comes before the one ahead of it was looked at goes to no other sign-in") {
    Fixture fixture;
    const auto earlier = fixture.begin();
    const auto later = fixture.begin(Fixture::makeWindow());
    fixture.services.open({callback, "cadora://callback?token=planted&user_id=666"});
    fixture.services.open({"cadora://callback?token=planted&user_id=666"});
    CHECK(later->ends == std::vector<std::string>{callback});
    CHECK(earlier->ends.empty());
    CHECK(fixture.log.lines.size() == 2);
}

TEST_CASE("a visit that ended waits for no time") {
    Fixture fixture;
    const auto visit = fixture.begin();
    fixture.services.open({callback});
    CHECK(fixture.clock.sleeperCount() == 0);
}

TEST_CASE("a visit can be cancelled by who asked for it, once, and not before its start") {
    Fixture fixture;
    const auto visit = fixture.make();
    visit->session->cancel();
    CHECK(visit->ends.empty());
    REQUIRE(visit->session->start());
    fixture.settle();
    visit->session->cancel();
    visit->session->cancel();
    CHECK(visit->ends == Fixture::cancelled());
    CHECK(Fixture::sheets().empty());
    fixture.services.open({callback});
    CHECK(visit->ends == Fixture::cancelled());
}

TEST_CASE(
    "what doesn't have the form of the site's redirect is no callback, and the sign-in goes on waiting") {
    Fixture fixture;
    const auto visit = fixture.begin();
    for (const std::string& url :
         {std::string("cadora:token=t&user_id=1"), std::string("cadora:?token=t&user_id=1"),
          std::string("cadora:///?token=t&user_id=1"), std::string("cadora://callback"),
          std::string("cadora://me@callback?token=t&user_id=1"),
          std::string("cadora://callback:1?token=t&user_id=1"),
          std::string("cadora://callback?token=t&user_id=1#more"),
          std::string("cadora://callback?user_id=1&token=") + std::string(16384, 't')}) {
        CAPTURE(url.substr(0, 60));
        fixture.services.open({url});
        CHECK(visit->ends.empty());
    }
    CHECK(fixture.log.lines.size() == 8);
    fixture.services.open({"cadora://auth/desktop?token=t&user_id=1&email=a@b"});
    CHECK(visit->ends == std::vector<std::string>{"cadora://auth/desktop?token=t&user_id=1&email=a@b"});
}

} // namespace cadora::test
