#include "hosts/linux/desktop/HeadlessApplication.h"

#include "fakes/FakeUserDefaults.h"
#include "fakes/Recorders.h"
#include "fakes/TemporaryDirectory.h"
#include "linux/EventLoop.h"
#include "linux/PrivateBus.h"

#include <doctest/doctest.h>

#include <memory>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

class CountingDelegate : public WindowDelegate {
public:
    int closed = 0;
    void windowWillClose() override { ++closed; }
};

class NoTarget : public MenuTarget, public ViewTarget {
public:
    void perform(MenuAction) override { FAIL("nobody could have chosen this"); }
    void perform(ViewAction) override { FAIL("nobody could have pressed this"); }
};

struct Fixture {
    EventLoop loop;
    PrivateBus bus;
    RecordingSystemLog log;
    TemporaryDirectory folder;
    FakeUserDefaults defaults;
    DBusApplication services{bus.connect(), log};
    FileManagerEntries entries{XDGFolders{folder.path() / "config", folder.path() / "data", {}, {}},
                               "/opt/send", defaults, log};
    HeadlessApplication application{services, entries, "/opt/cadora-helper"};

    std::vector<int> answer(const Alert& alert) {
        std::vector<int> answers;
        application.runModal(
            alert, [&answers](const Result<int>& result) { answers.push_back(std::get<int>(result)); });
        CHECK(answers.empty());
        loop.runPending();
        return answers;
    }
};

} // namespace

TEST_CASE("without a display an alert is closed by its last button, and not within the call") {
    Fixture fixture;
    CHECK(fixture.answer({"Uninstall?", "", {"Uninstall", "Cancel"}}) == std::vector{1001});
    CHECK(fixture.answer({"Hidden", ""}) == std::vector{1000});
}

TEST_CASE("without a display windows and the status item take what they are given, and show nothing") {
    Fixture fixture;
    CountingDelegate delegate;
    NoTarget target;
    const auto window = fixture.application.makeWindow({460, 520, "Cadora Helper"}, &delegate);
    window->setContentView({Stack{12, {Label{"text", {}, ColorRole::label}}}}, target);
    window->center();
    window->makeKeyAndOrderFront();
    fixture.application.activateIgnoringOtherApps();
    CHECK(fixture.application.windows().empty());
    window->close();
    CHECK(delegate.closed == 1);
    fixture.application.makeWindow({360, 120, "Sign in to Cadora"}, nullptr)->close();

    const auto item = fixture.application.makeStatusItem();
    item->setMenu({MenuCommand{"Quit Cadora Helper", MenuAction::quit}}, target);
    item->setVisibility(Visibility::visible);
}

TEST_CASE("without a display no sign-in begins") {
    bool isHandled = false;
    const auto session =
        HeadlessWebAuthentication().makeSession(URL::constant("https://cadora.example"), "cadora",
                                                [&](const auto&, const auto&) { isHandled = true; });
    CHECK_FALSE(session->start());
    CHECK_FALSE(isHandled);
}

TEST_CASE("without a display the program knows where it is installed, and ends when it is told to") {
    Fixture fixture;
    CHECK(fixture.application.bundlePath() == "/opt/cadora-helper");
    CHECK(fixture.application.registrationToolPath() == "/opt/cadora-helper/bin/cadora-register");
    fixture.application.terminate();
    CHECK(QCoreApplication::exec() == 0);
}

} // namespace cadora::test
