#pragma once

#include "fakes/TemporaryDirectory.h"
#include "linux/ChildProcess.h"
#include "linux/EventLoop.h"
#include "linux/PrivateBus.h"

#include <QDBusConnectionInterface>
#include <QDBusReply>

#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace cadora::test {

// A real keyring with nothing in it, on a bus that becomes the process's session bus: make it before whatever
// uses the keyring, so that this is gone first. One after the other share the bus, since GLib knows only one.
class Keyring {
public:
    enum class Login {
        withPassword,    // which makes and unlocks the user's keyring
        withoutPassword, // as an automatic login does: there may be no keyring to write to
    };

    Keyring() : Keyring(Login::withPassword) {}
    explicit Keyring(Login login) {
        setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
        startDaemon(login);
    }

    EventLoop loop;
    PrivateBus& bus = sharedBus();

    // The same keyring, in a new process.
    void startDaemon(Login login = Login::withPassword) {
        waitForDaemon(Presence::absent);
        std::vector<std::string> command{"gnome-keyring-daemon", "--components=secrets", "--foreground"};
        if (login == Login::withPassword) {
            command.emplace_back("--unlock");
        }
        daemon_ = std::make_unique<ChildProcess>(ChildProcess::Setup{command, environment(), "testpw"});
        waitForDaemon(Presence::present);
    }

    ChildProcess& daemon() { return *daemon_; }

    // Ends the daemon and waits until nobody has its name.
    void killDaemon() {
        daemon_.reset();
        waitForDaemon(Presence::absent);
    }

    // What another program sees and does there: runs Python lines that know `service` (an open
    // Secret.Service), `items(account)` and `bus`, and returns what they print.
    std::string asAnotherProgram(const std::string& lines) {
        const auto script = home_.file("script.py", prelude + lines + "\n");
        ChildProcess program(
            {{"/usr/bin/python3", script.string()}, environment(), {}, home_.path() / "errors"});
        std::string output;
        for (std::string line = program.readLine(); !line.empty(); line = program.readLine()) {
            output += (output.empty() ? "" : "\n") + line;
        }
        if (program.wait() != 0) {
            throw std::runtime_error("the other program failed: " + readFile(home_.path() / "errors"));
        }
        return output;
    }

    void lock() {
        asAnotherProgram(
            "bus.call_sync('org.freedesktop.secrets', '/org/freedesktop/secrets',"
            " 'org.freedesktop.Secret.Service', 'Lock',"
            " GLib.Variant('(ao)', (['/org/freedesktop/secrets/collection/login'],)), None, 0, -1, None)");
    }

    void unlock() {
        asAnotherProgram(R"(
session = bus.call_sync('org.freedesktop.secrets', '/org/freedesktop/secrets', 'org.freedesktop.Secret.Service',
    'OpenSession', GLib.Variant('(sv)', ('plain', GLib.Variant('s', ''))), None, 0, -1, None).unpack()[1]
bus.call_sync('org.freedesktop.secrets', '/org/freedesktop/secrets',
    'org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface', 'UnlockWithMasterPassword',
    GLib.Variant('(o(oayays))', ('/org/freedesktop/secrets/collection/login', (session, b'', b'testpw', 'text/plain'))),
    None, 0, -1, None))");
    }

private:
    static PrivateBus& sharedBus() {
        static PrivateBus shared;
        return shared;
    }

    static constexpr const char* prelude = R"(
import gi
gi.require_version('Secret', '1')
from gi.repository import Gio, GLib, Secret
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
service = Secret.Service.get_sync(Secret.ServiceFlags.OPEN_SESSION | Secret.ServiceFlags.LOAD_COLLECTIONS)
def items(account):
    attributes = {'service': 'com.norvelant.cadora.mac', 'account': account}
    return service.search_sync(None, attributes, Secret.SearchFlags.ALL | Secret.SearchFlags.LOAD_SECRETS)
)";

    enum class Presence { absent, present };

    void waitForDaemon(Presence expected) {
        const QString name = QStringLiteral("org.freedesktop.secrets");
        const bool inTime = loop.runUntil([&] {
            const bool present = connection_.interface()->isServiceRegistered(name).value();
            return present == (expected == Presence::present);
        });
        if (!inTime) {
            throw std::runtime_error("gnome-keyring-daemon did not start or end");
        }
    }

    std::map<std::string, std::string> environment() const {
        return {{"HOME", home_.path().string()},
                {"XDG_DATA_HOME", (home_.path() / "data").string()},
                {"XDG_RUNTIME_DIR", home_.path().string()},
                {"DBUS_SESSION_BUS_ADDRESS", bus.address()}};
    }

    TemporaryDirectory home_;
    QDBusConnection connection_ = bus.connect();
    std::unique_ptr<ChildProcess> daemon_;
};

} // namespace cadora::test
