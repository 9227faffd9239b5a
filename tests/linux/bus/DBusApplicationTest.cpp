#include "hosts/linux/bus/DBusApplication.h"

#include "base/Error.h"
#include "fakes/Recorders.h"
#include "linux/EventLoop.h"
#include "linux/PrivateBus.h"

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QVariantMap>

#include <doctest/doctest.h>

#include <optional>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

// Remembers what it was sent, and answers as it is told.
class RecordingProvider : public ServicesProvider {
public:
    struct Call {
        std::vector<std::string> urls;
        std::optional<std::string> userData;
    };
    std::vector<Call> calls;
    std::string errorText;

    void sendToCadora(const Pasteboard& pasteboard, const std::optional<std::string>& userData,
                      std::string& error) override {
        Call call{{}, userData};
        for (const URL& url : pasteboard.readURLs()) {
            call.urls.push_back(url.text());
        }
        calls.push_back(call);
        if (!errorText.empty()) {
            error = errorText;
        }
    }
};

// An application on a bus of its own, and another program there that calls it.
struct Fixture {
    EventLoop loop;
    PrivateBus bus;
    RecordingSystemLog log;
    RecordingProvider provider;
    DBusApplication application{bus.connect(), log};
    QDBusConnection caller = bus.connect();
    int reopened = 0;

    Fixture() {
        REQUIRE(application.claimName() == DBusApplication::Claim::first);
        application.setServicesProvider(provider);
        application.setReopenHandler([this] { ++reopened; });
    }

    // The answer, or the error, of a call by the other program.
    QDBusMessage call(const char* interface, const char* method, const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall("com.norvelant.cadora.mac",
                                                              "/com/norvelant/cadora/mac", interface, method);
        message.setArguments(arguments);
        const QDBusPendingCall pending = caller.asyncCall(message);
        REQUIRE(loop.runUntil([&] { return pending.isFinished(); }));
        return pending.reply();
    }

    QDBusMessage sendToCadora(const QStringList& uris, const QString& userData = {}) {
        return call("com.norvelant.cadora.mac.Services", "sendToCadora", {uris, userData});
    }
    static QDBusMessage problemsQuestion() {
        return QDBusMessage::createMethodCall("com.norvelant.cadora.mac", "/com/norvelant/cadora/mac",
                                              "com.norvelant.cadora.mac.Staging", "problems");
    }
    QStringList problems() {
        return call("com.norvelant.cadora.mac.Staging", "problems", {}).arguments().value(0).toStringList();
    }
    QDBusMessage open(const QStringList& uris) {
        return call("org.freedesktop.Application", "Open", {uris, QVariantMap()});
    }
};

} // namespace

TEST_CASE_FIXTURE(Fixture, "a send request reaches the provider with its files and its user data") {
    const QDBusMessage answer = sendToCadora({"file:///a%20b.wav", "/c d.wav", "https://e.example/"}, "data");
    CHECK(answer.type() == QDBusMessage::ReplyMessage);
    CHECK(answer.arguments() == QVariantList{QString()});
    REQUIRE(provider.calls.size() == 1);
    CHECK(provider.calls[0].urls ==
          std::vector<std::string>{"file:///a%20b.wav", "file:///c%20d.wav", "https://e.example/"});
    CHECK(provider.calls[0].userData == "data");
}

TEST_CASE_FIXTURE(Fixture, "the provider's error text is the request's answer") {
    provider.errorText = "No file to send to Cadora.";
    const QDBusMessage answer = sendToCadora({});
    CHECK(answer.arguments() == QVariantList{QStringLiteral("No file to send to Cadora.")});
    REQUIRE(provider.calls.size() == 1);
    CHECK(provider.calls[0].urls.empty());
}

TEST_CASE_FIXTURE(Fixture, "a request of another form is refused before it reaches the provider") {
    CHECK(call("com.norvelant.cadora.mac.Services", "sendToCadora", {QStringLiteral("/a.wav")}).type() ==
          QDBusMessage::ErrorMessage);
    CHECK(call("com.norvelant.cadora.mac.Services", "sendToCadora", {}).type() == QDBusMessage::ErrorMessage);
    CHECK(provider.calls.empty());
}

TEST_CASE_FIXTURE(Fixture, "opening files sends them") {
    CHECK(open({"file:///a.wav", "/b.wav"}).type() == QDBusMessage::ReplyMessage);
    REQUIRE(provider.calls.size() == 1);
    CHECK(provider.calls[0].urls == std::vector<std::string>{"file:///a.wav", "file:///b.wav"});
}

TEST_CASE_FIXTURE(Fixture, "opening what can't be sent answers with the provider's text") {
    provider.errorText = "No file to send to Cadora.";
    const QDBusMessage answer = open({"https://e.example/"});
    CHECK(answer.type() == QDBusMessage::ErrorMessage);
    CHECK(answer.errorName() == "com.norvelant.cadora.mac.Error.RequestRefused");
    CHECK(answer.errorMessage() == "No file to send to Cadora.");
}

TEST_CASE_FIXTURE(Fixture, "a URL of the program's own scheme goes to its handler, and is never sent") {
    std::vector<std::string> opened;
    application.setURLHandler([&](const URL& url) {
        opened.push_back(url.text());
        return URLReception::taken;
    });
    CHECK(open({"cadora://auth?token=a", "/b.wav", "CADORA:other"}).type() == QDBusMessage::ReplyMessage);
    CHECK(opened == std::vector<std::string>{"cadora://auth?token=a", "CADORA:other"});
    REQUIRE(provider.calls.size() == 1);
    CHECK(provider.calls[0].urls == std::vector<std::string>{"file:///b.wav"});
}

TEST_CASE_FIXTURE(Fixture,
                  "a URL that nobody waits for is dropped with a log line that shows none of its secrets") {
    CHECK(open({"cadora://auth/secret?token=secret#secret", "cadora:se cret"}).type() ==
          QDBusMessage::ReplyMessage);
    CHECK(provider.calls.empty());
    CHECK(log.lines == std::vector<std::string>{
                           "[Cadora Helper] dropped a URL that nobody waits for: cadora://auth",
                           "[Cadora Helper] dropped a URL that nobody waits for: it is not well-formed"});
}

TEST_CASE_FIXTURE(Fixture, "activating the program opens it again, and sends nothing") {
    CHECK(call("org.freedesktop.Application", "Activate", {QVariantMap()}).type() ==
          QDBusMessage::ReplyMessage);
    CHECK(reopened == 1);
    CHECK(provider.calls.empty());
}

TEST_CASE_FIXTURE(Fixture, "an unknown action is refused") {
    const QVariantList nothing;
    const QDBusMessage answer = call("org.freedesktop.Application", "ActivateAction",
                                     {QStringLiteral("rewind"), QVariant(nothing), QVariantMap()});
    CHECK(answer.type() == QDBusMessage::ErrorMessage);
    CHECK(answer.errorMessage() == "There is no action “rewind”.");
}

TEST_CASE_FIXTURE(Fixture, "the interfaces describe themselves") {
    const QDBusMessage answer = call("org.freedesktop.DBus.Introspectable", "Introspect", {});
    REQUIRE(answer.arguments().size() == 1);
    const QString description = answer.arguments().first().toString();
    CHECK(description.contains("<arg name=\"uris\" type=\"as\" direction=\"in\"/>"));
    CHECK(description.contains("<arg name=\"error\" type=\"s\" direction=\"out\"/>"));
    CHECK(description.contains("<interface name=\"org.freedesktop.Application\">"));
}

TEST_CASE_FIXTURE(Fixture,
                  "a caller that asks is told what could not be staged of its files, once that is known") {
    CHECK(sendToCadora({"file:///a.wav"}).arguments() == QVariantList{QString()});
    const QDBusPendingCall question = caller.asyncCall(problemsQuestion());
    // An answer to this means that the question has arrived.
    CHECK(sendToCadora({"file:///b.wav"}).arguments() == QVariantList{QString()});
    CHECK_FALSE(question.isFinished());
    application.staged({"“a.wav” couldn’t be copied"});
    application.staged({});
    REQUIRE(loop.runUntil([&] { return question.isFinished(); }));
    CHECK(question.reply().arguments() == QVariantList{QStringList{"“a.wav” couldn’t be copied"}});
    CHECK(problems().isEmpty());
}

TEST_CASE_FIXTURE(Fixture, "problems are told to nobody but the caller whose files they are about") {
    QDBusConnection other = bus.connect();
    sendToCadora({"file:///a.wav"});
    open({"file:///b.wav"});
    application.staged({"first"});
    application.staged({"of a start of the program"});
    const QDBusPendingCall question = other.asyncCall(problemsQuestion());
    REQUIRE(loop.runUntil([&] { return question.isFinished(); }));
    CHECK(question.reply().arguments() == QVariantList{QStringList{}});
    CHECK(problems() == QStringList{"first"});
}

TEST_CASE_FIXTURE(Fixture, "a request that was refused has no problems to wait for") {
    provider.errorText = "No file to send to Cadora.";
    sendToCadora({});
    CHECK(problems().isEmpty());
}

TEST_CASE_FIXTURE(Fixture, "the problems of callers that never ask are forgotten, the earliest first") {
    for (int i = 0; i < 65; ++i) {
        sendToCadora({"file:///a.wav"});
    }
    for (int i = 0; i < 65; ++i) {
        application.staged({std::to_string(i)});
    }
    CHECK(problems().size() == 64);
}

TEST_CASE_FIXTURE(Fixture, "a file's URI that is not well-formed is logged and told, and the rest goes on") {
    CHECK(sendToCadora({"file:///100%.wav", "file:///b.wav"}).arguments() == QVariantList{QString()});
    REQUIRE(provider.calls.size() == 1);
    CHECK(provider.calls[0].urls == std::vector<std::string>{"file:///b.wav"});
    CHECK(log.lines ==
          std::vector<std::string>{
              "[Cadora Helper] stage failed: “100%.wav” has an address that is not well-formed"});
    application.staged({});
    CHECK(problems() == QStringList{"“100%.wav” has an address that is not well-formed"});
}

TEST_CASE("the name has one owner, and is free again when that one ends") {
    EventLoop loop;
    PrivateBus bus;
    RecordingSystemLog log;
    DBusApplication other(bus.connect(), log);
    QString connection;
    {
        QDBusConnection first = bus.connect();
        connection = first.name();
        DBusApplication application(first, log);
        CHECK(application.claimName() == DBusApplication::Claim::first);
        CHECK(other.claimName() == DBusApplication::Claim::anotherRuns);
        CHECK(other.claimName() == DBusApplication::Claim::anotherRuns);
    }
    QDBusConnection::disconnectFromBus(connection);
    CHECK(loop.runUntil([&] { return other.claimName() == DBusApplication::Claim::first; }));
}

TEST_CASE("the end of the bus is told once") {
    EventLoop loop;
    PrivateBus bus;
    RecordingSystemLog log;
    DBusApplication application(bus.connect(), log);
    REQUIRE(application.claimName() == DBusApplication::Claim::first);
    int lost = 0;
    application.setBusLostHandler([&] { ++lost; });
    bus.stop();
    CHECK(loop.runUntil([&] { return lost > 0; }));
    loop.runPending();
    CHECK(lost == 1);
    CHECK_THROWS_AS(application.claimName(), PlatformError);
}

TEST_CASE("a name can't be claimed on a bus that was never there") {
    EventLoop loop;
    RecordingSystemLog log;
    DBusApplication application(QDBusConnection::connectToBus("unix:path=/nonexistent/bus", "no bus"), log);
    CHECK_THROWS_AS(application.claimName(), PlatformError);
}

} // namespace cadora::test
