#include "hosts/linux/sign-in/DesktopBrowser.h"

#include "fakes/TemporaryDirectory.h"
#include "linux/EventLoop.h"
#include "linux/PrivateBus.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>

#include <doctest/doctest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

namespace {

constexpr const char* page = "https://cadora.example/auth/apple/desktop";

// A portal that answers as it is told.
class Portal : public QDBusVirtualObject {
public:
    Portal(QDBusConnection bus, std::optional<uint> response) : bus_(std::move(bus)), response_(response) {
        bus_.registerVirtualObject("/org/freedesktop/portal/desktop", this, QDBusConnection::SubPath);
        bus_.registerService("org.freedesktop.portal.Desktop");
    }

    std::vector<std::string> opened;
    std::string parentWindow;

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        if (!response_) {
            bus_.send(message.createErrorReply(QDBusError::Failed, "no backend"));
            return true;
        }
        const auto arguments = message.arguments();
        parentWindow = arguments.at(0).toString().toStdString();
        opened.push_back(arguments.at(1).toString().toStdString());
        const auto options = qdbus_cast<QVariantMap>(arguments.at(2));
        const QString path = "/org/freedesktop/portal/desktop/request/" +
                             message.service().mid(1).replace('.', '_') + "/" +
                             options["handle_token"].toString();
        QDBusMessage signal = QDBusMessage::createTargetedSignal(
            message.service(), path, "org.freedesktop.portal.Request", "Response");
        signal << *response_ << QVariantMap();
        // As quick as a portal can be.
        bus_.send(signal);
        bus_.send(message.createReply(QVariant::fromValue(QDBusObjectPath(path))));
        return true;
    }

private:
    QDBusConnection bus_;
    std::optional<uint> response_;
};

// A search path on which xdg-open is a script, or missing.
struct Fixture {
    EventLoop loop;
    PrivateBus bus;
    TemporaryDirectory folder;
    std::string formerPath = std::getenv("PATH");
    DesktopBrowser browser{bus.connect()};
    std::vector<std::string> failures;

    explicit Fixture(const std::string& command = {}) {
        if (!command.empty()) {
            std::filesystem::permissions(folder.file("xdg-open", "#!/bin/sh\n" + command + "\n"),
                                         std::filesystem::perms::owner_all);
        }
        setenv("PATH", folder.path().c_str(), 1);
    }
    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;
    ~Fixture() { setenv("PATH", formerPath.c_str(), 1); }

    void open() {
        browser.open(URL::constant(page), "x11:2a",
                     [this](const std::string& reason) { failures.push_back(reason); });
    }
    std::filesystem::path note() const { return folder.path() / "note"; }
};

} // namespace

TEST_CASE("a page opens through the portal where there is one") {
    Fixture fixture("exit 1");
    Portal portal(fixture.bus.connect(), 0);
    fixture.open();
    CHECK(fixture.loop.runUntil([&] { return !portal.opened.empty(); }));
    CHECK(portal.opened == std::vector<std::string>{page});
    CHECK(portal.parentWindow == "x11:2a");
    // A second round trip: what the first one brings about has happened then.
    fixture.open();
    CHECK(fixture.loop.runUntil([&] { return portal.opened.size() == 2; }));
    CHECK(fixture.failures.empty());
}

TEST_CASE("a browser does not inherit which signals the program ignores") {
    Fixture fixture("while read -r name value; do\n"
                    "    [ \"$name\" != SigIgn: ] || echo \"$value\" > \"${0%/*}/note\"\n"
                    "done < /proc/$$/status");
    auto* const former = std::signal(SIGPIPE, SIG_IGN);
    fixture.open();
    REQUIRE(fixture.loop.runUntil([&] { return readFile(fixture.note()).ends_with('\n'); }));
    std::signal(SIGPIPE, former);
    CHECK((std::stoull(readFile(fixture.note()), nullptr, 16) >> (SIGPIPE - 1) & 1) == 0);
}

TEST_CASE("a choice of browsers that the user dismissed is told") {
    Fixture fixture("exit 1");
    Portal portal(fixture.bus.connect(), 1);
    fixture.open();
    CHECK(fixture.loop.runUntil([&] { return !fixture.failures.empty(); }));
    CHECK(fixture.failures == std::vector<std::string>{"no browser was chosen"});
}

TEST_CASE("where the portal fails or is missing, xdg-open opens the page") {
    // In one step, so that the note is whole once it is there.
    Fixture fixture("echo \"$@\" >\"${0%/*}/part\"; /bin/mv \"${0%/*}/part\" \"${0%/*}/note\"");
    std::optional<Portal> portal;
    SUBCASE("it fails to open the page") {
        portal.emplace(fixture.bus.connect(), 2);
    }
    SUBCASE("it has no such thing") {
        portal.emplace(fixture.bus.connect(), std::nullopt);
    }
    SUBCASE("there is none") {}
    fixture.open();
    CHECK(fixture.loop.runUntil([&] { return std::filesystem::exists(fixture.note()); }));
    CHECK(readFile(fixture.note()) == std::string(page) + "\n");
    CHECK(fixture.failures.empty());
}

TEST_CASE("an xdg-open that fails or is missing is told") {
    SUBCASE("it finds no program") {
        Fixture fixture("exit 3");
        fixture.open();
        CHECK(fixture.loop.runUntil([&] { return !fixture.failures.empty(); }));
        CHECK(fixture.failures == std::vector<std::string>{"no program for web pages was found"});
    }
    SUBCASE("the program fails") {
        Fixture fixture("exit 4");
        fixture.open();
        CHECK(fixture.loop.runUntil([&] { return !fixture.failures.empty(); }));
        CHECK(fixture.failures == std::vector<std::string>{"the desktop’s default browser did not start"});
    }
    SUBCASE("it is not installed") {
        Fixture fixture;
        fixture.open();
        CHECK(fixture.loop.runUntil([&] { return !fixture.failures.empty(); }));
        CHECK(fixture.failures == std::vector<std::string>{"xdg-open: No such file or directory"});
    }
}

TEST_CASE("a browser that runs on outlives the one who opened it") {
    Fixture fixture(
        "echo $$ >\"${0%/*}/part\"; /bin/mv \"${0%/*}/part\" \"${0%/*}/note\"; exec /bin/sleep 300");
    pid_t process = 0;
    {
        DesktopBrowser browser(fixture.bus.connect());
        browser.open(URL::constant(page), "", [](const std::string&) {});
        REQUIRE(fixture.loop.runUntil([&] { return std::filesystem::exists(fixture.note()); }));
        process = std::stoi(readFile(fixture.note()));
        CHECK(getsid(process) == process);
    }
    CHECK(kill(process, 0) == 0);
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

} // namespace cadora::test
