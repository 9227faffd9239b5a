#include "hosts/linux/bus/DBusUserNotificationCenter.h"

#include "hosts/linux/system/QtMainActor.h"
#include "linux/EventLoop.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QVariantMap>

#include <doctest/doctest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

// The desktop that the test runs in: other tests give the process other session buses.
const std::string desktopBus = [] {
    const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    return std::string(address != nullptr ? address : "");
}();

// The notification server of the desktop, asked in its own way what it shows.
class Dunst {
public:
    explicit Dunst(const QDBusConnection& bus)
        : commands_("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                    "org.dunstproject.cmd0", bus) {}

    unsigned shownCount() { return commands_.property("displayedLength").toUInt(); }

    struct Notification {
        std::string application;
        std::string summary;
        std::string body;
    };
    // Takes all notifications away and returns them, newest first.
    std::vector<Notification> takeAll() {
        commands_.call("NotificationCloseAll");
        std::vector<Notification> notifications;
        const QDBusMessage answer = commands_.call("NotificationListHistory");
        const auto list = answer.arguments().value(0).value<QDBusArgument>();
        list.beginArray();
        while (!list.atEnd()) {
            QVariantMap entry;
            list >> entry;
            notifications.push_back({entry["appname"].toString().toStdString(),
                                     entry["summary"].toString().toStdString(),
                                     entry["body"].toString().toStdString()});
        }
        list.endArray();
        return notifications;
    }

private:
    QDBusInterface commands_;
};

} // namespace

TEST_CASE("a notification server in use shows every notification, alike or not, with its text") {
    EventLoop loop;
    QtMainActor actor;
    const auto bus = QDBusConnection::connectToBus(QString::fromStdString(desktopBus), "desktop");
    REQUIRE(bus.isConnected());
    Dunst dunst(bus);
    DBusUserNotificationCenter center(actor, bus);
    center.add({"1", "Sent to Cadora ✓", "Song.wav — private"});
    center.add({"2", "Sent to Cadora ✓", "Song.wav — private"});
    center.add({"3", "Couldn’t send to Cadora", "<i>A & B</i> \"it's\".wav"});
    REQUIRE(loop.runUntil([&] { return dunst.shownCount() == 3; }));
    const auto shown = dunst.takeAll();
    REQUIRE(shown.size() == 3);
    CHECK(shown[0].application == "Cadora Helper");
    CHECK(shown[0].summary == "Couldn’t send to Cadora");
    // As it keeps it: the markup that shows the text of the name.
    CHECK(shown[0].body == "&lt;i&gt;A &amp; B&lt;/i&gt; &quot;it&#39;s&quot;.wav");
    for (const auto& alike : {shown[1], shown[2]}) {
        CHECK(alike.summary == "Sent to Cadora ✓");
        CHECK(alike.body == "Song.wav — private");
    }
}

} // namespace cadora::test
