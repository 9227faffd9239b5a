#include "hosts/linux/bus/SingleInstance.h"

#include "fakes/Recorders.h"
#include "hosts/linux/bus/DBusApplication.h"
#include "linux/EventLoop.h"
#include "linux/PrivateBus.h"
#include "linux/SilentService.h"

#include <QDBusConnectionInterface>

#include <doctest/doctest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <optional>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

using Outcome = Forwarding::Outcome;
using Texts = std::vector<std::string>;

class RecordingProvider : public ServicesProvider {
public:
    Texts urls;
    std::string errorText;

    void sendToCadora(const Pasteboard& pasteboard, const std::optional<std::string>&,
                      std::string& error) override {
        for (const URL& url : pasteboard.readURLs()) {
            urls.push_back(url.text());
        }
        error = errorText;
    }
};

// A bus of its own that a new process would take for its session's.
struct Fixture {
    EventLoop loop;
    PrivateBus bus;
    RecordingSystemLog log;

    Fixture() { setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1); }

    // From another thread, as from another program: the call blocks while the event loop here answers it.
    Forwarding forward(const Texts& uris) {
        auto forwarding = std::async(std::launch::async, forwardToRunningHelper, uris);
        REQUIRE(loop.runUntil(
            [&] { return forwarding.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
        return forwarding.get();
    }
};

struct FixtureWithHelper : Fixture {
    RecordingProvider provider;
    int reopened = 0;
    QDBusConnection connection = bus.connect();
    DBusApplication application{connection, log};

    FixtureWithHelper() {
        REQUIRE(application.claimName() == DBusApplication::Claim::first);
        application.setServicesProvider(provider);
        application.setReopenHandler([this] { ++reopened; });
    }
};

} // namespace

TEST_CASE_FIXTURE(Fixture, "when nobody runs there is nobody to forward to") {
    CHECK(forward({}).outcome == Outcome::nobodyRuns);
    const Forwarding forwarding = forward({"file:///a.wav"});
    CHECK(forwarding.outcome == Outcome::nobodyRuns);
    CHECK(forwarding.reason.empty());
}

TEST_CASE_FIXTURE(FixtureWithHelper, "files go to the helper that runs, all of them in order") {
    const Texts uris{"file:///a%20b.wav", "file:///%FF.wav", "file:///c.wav"};
    const Forwarding forwarding = forward(uris);
    CHECK(forwarding.outcome == Outcome::done);
    CHECK(forwarding.reason.empty());
    CHECK(provider.urls == uris);
    CHECK(reopened == 0);
}

TEST_CASE_FIXTURE(FixtureWithHelper, "a start without files opens the helper again") {
    CHECK(forward({}).outcome == Outcome::done);
    CHECK(reopened == 1);
    CHECK(provider.urls.empty());
}

TEST_CASE_FIXTURE(FixtureWithHelper, "what the helper refuses is told in its own words") {
    provider.errorText = "No file to send to Cadora.";
    const Forwarding forwarding = forward({"https://e.example/"});
    CHECK(forwarding.outcome == Outcome::refused);
    CHECK(forwarding.reason == "No file to send to Cadora.");
}

TEST_CASE_FIXTURE(Fixture, "a holder of the name that is no helper gives no answer") {
    QDBusConnection impostor = bus.connect();
    REQUIRE(impostor.registerService("com.norvelant.cadora.mac"));
    const Forwarding forwarding = forward({"file:///a.wav"});
    CHECK(forwarding.outcome == Outcome::noAnswer);
    CHECK_FALSE(forwarding.reason.empty());
}

TEST_CASE_FIXTURE(Fixture, "a helper that ends before it answers leaves the request to the next one") {
    SilentService dying(bus.connect(), "com.norvelant.cadora.mac", "/com/norvelant/cadora/mac");
    auto forwarding = std::async(std::launch::async, forwardToRunningHelper, Texts{"file:///a.wav"});
    REQUIRE(loop.runUntil([&] { return dying.calls == 1; }));
    dying.crash();
    CHECK(forwarding.get().outcome == Outcome::nobodyRuns);
}

TEST_CASE_FIXTURE(FixtureWithHelper, "what the desktop gave a later start goes to the helper that runs") {
    Activation activation;
    application.setActivationHandler([&](const Activation& given) { activation = given; });
    setenv("XDG_ACTIVATION_TOKEN", "token", 1);
    setenv("DESKTOP_STARTUP_ID", "start_TIME12", 1);
    CHECK(forward({}).outcome == Outcome::done);
    CHECK(activation.waylandToken == "token");
    CHECK(activation.x11StartupID == "start_TIME12");
    unsetenv("XDG_ACTIVATION_TOKEN");
    unsetenv("DESKTOP_STARTUP_ID");
    CHECK(forward({"file:///a.wav"}).outcome == Outcome::done);
    CHECK(activation.isEmpty());
}

TEST_CASE_FIXTURE(FixtureWithHelper, "a helper without a display gives way, and takes nothing any more") {
    int gaveWay = 0;
    application.setGiveWayHandler([&] { ++gaveWay; });
    CHECK(forward({}).outcome == Outcome::noDisplay);
    CHECK(reopened == 0);
    CHECK(forward({"file:///a.wav"}).outcome == Outcome::done);
    auto takingOver = std::async(std::launch::async, takeOverFromRunningHelper);
    REQUIRE(loop.runUntil([&] { return gaveWay == 1; }));
    CHECK(forward({"file:///b.wav"}).outcome == Outcome::refused);
    CHECK(provider.urls == Texts{"file:///a.wav"});
    // It has gone once its name is free.
    connection.interface()->unregisterService("com.norvelant.cadora.mac");
    REQUIRE(loop.runUntil(
        [&] { return takingOver.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    CHECK(takingOver.get() == "");
}

TEST_CASE_FIXTURE(FixtureWithHelper, "a helper with a display gives no way") {
    auto takingOver = std::async(std::launch::async, takeOverFromRunningHelper);
    REQUIRE(loop.runUntil(
        [&] { return takingOver.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    CHECK(takingOver.get() == "There is no action “give-way”.");
}

TEST_CASE("without a session bus that is said, with the reason") {
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    for (const Texts& uris : {Texts{}, Texts{"file:///a.wav"}}) {
        const Forwarding forwarding = forwardToRunningHelper(uris);
        CHECK(forwarding.outcome == Outcome::noSessionBus);
        CHECK(forwarding.reason.find("/nonexistent/bus") != std::string::npos);
    }
}

} // namespace cadora::test
