#include "hosts/linux/bus/DBusUserNotificationCenter.h"

#include "hosts/linux/system/QtMainActor.h"
#include "linux/EventLoop.h"
#include "linux/PrivateBus.h"
#include "linux/bus/NotificationServer.h"

#include <QDBusPendingCall>

#include <doctest/doctest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace cadora::test {

namespace {

const QStringList markup{"body", "body-markup"};
const QStringList plain{"body"};
using Texts = std::vector<std::string>;

struct Fixture {
    EventLoop loop;
    PrivateBus bus;
    QtMainActor actor;
    DBusUserNotificationCenter center{actor, bus.connect()};
    std::unique_ptr<NotificationServer> server;

    void startServer(const QStringList& capabilities) {
        server.reset();
        server = std::make_unique<NotificationServer>(bus.connect(), capabilities);
        REQUIRE(server->owned);
    }

    bool shows(std::size_t count) {
        return loop.runUntil([&] { return server->notifications.size() >= count; });
    }

    void add(const std::string& title, const std::string& body) {
        static int count = 0;
        center.add({std::to_string(++count), title, body});
    }

    // Goes by without a server: afterwards the center knows that there was none.
    void addInVain() {
        add("lost", "lost");
        auto probe = bus.connect();
        const auto message =
            QDBusMessage::createMethodCall("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                           "org.freedesktop.Notifications", "GetCapabilities");
        loop.runPending();
        const auto call = probe.asyncCall(message);
        REQUIRE(loop.runUntil([&] { return call.isFinished(); }));
        REQUIRE(call.isError());
    }
};

} // namespace

TEST_CASE_FIXTURE(
    Fixture, "a notification has the program's name, icon and entry, its own title and body, and no sound") {
    startServer(plain);
    add("Sent to Cadora ✓", "Song — private");
    REQUIRE(shows(1));
    const auto& shown = server->notifications[0];
    CHECK(shown.application == "Cadora Helper");
    CHECK(shown.replaces == 0);
    CHECK(shown.icon == "cadora-helper");
    CHECK(shown.summary == "Sent to Cadora ✓");
    CHECK(shown.body == "Song — private");
    CHECK(shown.actions.isEmpty());
    CHECK(shown.hints ==
          QVariantMap{{"suppress-sound", true}, {"desktop-entry", "com.norvelant.cadora.mac"}});
    CHECK(shown.timeout == -1);
}

TEST_CASE_FIXTURE(Fixture, "two alike are two notifications, neither of which replaces another") {
    startServer(plain);
    add("Sent to Cadora ✓", "Song — private");
    add("Sent to Cadora ✓", "Song — private");
    REQUIRE(shows(2));
    CHECK(server->notifications[0].replaces == 0);
    CHECK(server->notifications[1].replaces == 0);
}

TEST_CASE_FIXTURE(Fixture, "where the body is markup it is escaped, and the title is not") {
    startServer(markup);
    const std::string name = "<b>A & B</b> \"it's\".wav";
    add(name, name);
    REQUIRE(shows(1));
    CHECK(server->notifications[0].summary == name);
    CHECK(server->notifications[0].body == "&lt;b&gt;A &amp; B&lt;/b&gt; &quot;it&#39;s&quot;.wav");
}

TEST_CASE_FIXTURE(Fixture, "where the body is plain text it is left as it is") {
    startServer(plain);
    add("title", "<b>A & B</b> \"it's\".wav\nsecond line");
    REQUIRE(shows(1));
    CHECK(server->notifications[0].body == "<b>A & B</b> \"it's\".wav\nsecond line");
}

TEST_CASE_FIXTURE(Fixture, "what the server can do is asked once, and again of the next server") {
    startServer(markup);
    add("1", "&");
    REQUIRE(shows(1));
    add("2", "&");
    REQUIRE(shows(2));
    CHECK(server->capabilityCalls == 1);
    CHECK(server->bodies() == Texts{"&amp;", "&amp;"});

    startServer(plain);
    add("3", "&");
    REQUIRE(shows(1));
    CHECK(server->capabilityCalls == 1);
    CHECK(server->bodies() == Texts{"&"});
}

TEST_CASE_FIXTURE(Fixture,
                  "requests arrive in the order in which they were added, also while the server is asked") {
    startServer(plain);
    server->holdsCapabilities = true;
    for (int i = 0; i < 5; ++i) {
        add("title", std::to_string(i));
    }
    REQUIRE(loop.runUntil([&] { return server->capabilityCalls > 0; }));
    add("title", "5");
    loop.runPending();
    CHECK(server->notifications.empty());
    CHECK(server->capabilityCalls == 1);
    server->answerCapabilities();
    add("title", "6");
    REQUIRE(shows(7));
    CHECK(server->bodies() == Texts{"0", "1", "2", "3", "4", "5", "6"});
}

TEST_CASE_FIXTURE(Fixture, "any thread may add, and each one's order is kept") {
    startServer(plain);
    std::vector<std::thread> threads;
    for (const char* name : {"a", "b"}) {
        threads.emplace_back([this, name] {
            for (int i = 0; i < 10; ++i) {
                center.add({"identifier", name, std::to_string(i)});
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    REQUIRE(shows(20));
    for (const std::string name : {"a", "b"}) {
        Texts bodies;
        for (const auto& notification : server->notifications) {
            if (notification.summary == name) {
                bodies.push_back(notification.body);
            }
        }
        CHECK(bodies == Texts{"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"});
    }
}

TEST_CASE_FIXTURE(
    Fixture, "without a server a notification is lost in silence, and the next one finds a server again") {
    addInVain();
    startServer(plain);
    add("title", "found");
    REQUIRE(shows(1));
    CHECK(server->bodies() == Texts{"found"});
    server.reset();
    addInVain();
    startServer(markup);
    add("title", "found & again");
    REQUIRE(shows(1));
    CHECK(server->bodies() == Texts{"found &amp; again"});
}

TEST_CASE_FIXTURE(Fixture,
                  "a server that ends while it is asked costs the requests that waited for it, and no more") {
    startServer(plain);
    server->holdsCapabilities = true;
    add("title", "waiting");
    REQUIRE(loop.runUntil([&] { return server->capabilityCalls > 0; }));
    server->crash();
    addInVain();
    startServer(plain);
    add("title", "later");
    REQUIRE(shows(1));
    CHECK(server->bodies() == Texts{"later"});
}

TEST_CASE_FIXTURE(Fixture, "text that is not UTF-8 is shown with replacement characters") {
    startServer(plain);
    add("caf\xe9", "na\xefve.wav");
    REQUIRE(shows(1));
    CHECK(server->notifications[0].summary == "caf\uFFFD");
    CHECK(server->notifications[0].body == "na\uFFFDve.wav");
}

TEST_CASE_FIXTURE(Fixture,
                  "what was added is with the bus when the call returns, whatever becomes of the program") {
    startServer(plain);
    auto connection = bus.connect();
    const QString name = connection.name();
    auto doomed = std::make_unique<DBusUserNotificationCenter>(actor, connection);
    doomed->add({"1", "title", "first"});
    REQUIRE(shows(1));
    doomed->add({"2", "title", "second"});
    // No turn of the event loop, and no word of farewell.
    connection = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(name);
    REQUIRE(shows(2));
    CHECK(server->bodies() == Texts{"first", "second"});
    doomed.reset();
}

TEST_CASE_FIXTURE(Fixture,
                  "a server that falls behind gets what is new, but no more of what it has not answered") {
    startServer(plain);
    server->holdsAnswers = true;
    add("title", "first");
    REQUIRE(shows(1));
    constexpr std::size_t most = DBusUserNotificationCenter::mostUnanswered;
    for (std::size_t i = 0; i < 3 * most; ++i) {
        add("title", "again");
    }
    add("title", "news");
    REQUIRE(shows(most + 1));
    loop.runPending();
    CHECK(server->notifications.size() == most + 1);
    CHECK(server->bodies().back() == "news");
    server->answerNotifications();
    REQUIRE(shows(most + 2));
    CHECK(server->bodies().back() == "again");
}

TEST_CASE_FIXTURE(Fixture, "asking for permission says nothing to anybody") {
    startServer(plain);
    center.requestAuthorization(UserNotificationCenter::alert | UserNotificationCenter::sound);
    loop.runPending();
    CHECK(server->capabilityCalls == 0);
}

} // namespace cadora::test
