#pragma once

#include "hosts/linux/bus/Activation.h"
#include "hosts/linux/bus/DBusAdaptors.h"
#include "platform/Application.h"
#include "platform/SystemLog.h"

#include <QDBusConnection>

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace cadora {

// What became of a URL that somebody handed over.
enum class URLReception { taken, notAwaited };

// The program on the session bus: the interface that the file managers' "Send to Cadora" entries call, and
// org.freedesktop.Application, through which a second start and the desktop's own "open" reach this one.
// Calls arrive from the event loop, on the main thread.
class DBusApplication {
public:
    // The objects are on the bus from here on, before anybody can know the name. `systemLog` must outlive the
    // application.
    DBusApplication(QDBusConnection bus, SystemLog& systemLog);
    DBusApplication(const DBusApplication&) = delete;
    DBusApplication& operator=(const DBusApplication&) = delete;
    ~DBusApplication();

    enum class Claim { first, anotherRuns };

    // Takes the program's name on the bus, which one process at a time can hold: that is what makes it the
    // only one of the session. Throws PlatformError when the bus doesn't answer.
    Claim claimName();

    // Send requests go to the provider, which must outlive the application; until it is set they are refused.
    void setServicesProvider(ServicesProvider& provider);

    // Called when the user opens the program again. Until it is set, that does nothing.
    void setReopenHandler(std::function<void()> handler);

    // Called with what the desktop gave with a call to come to the front with, before what the call does.
    void setActivationHandler(std::function<void(const Activation&)> handler);

    // For a program that can show nothing: being opened is refused from here on, so that a start that has a
    // display can ask it to give way. Then send requests are refused, and the handler is to end the program.
    void setGiveWayHandler(std::function<void()> handler);

    // Called with each URL of the program's own scheme. Where it is null, such URLs are dropped like those
    // that it doesn't take: with a log line that holds nothing of what they carry.
    void setURLHandler(std::function<URLReception(const URL&)> handler);

    // Called when the session bus is gone, and with it the claim on the name.
    void setBusLostHandler(std::function<void()> handler);

    // Opens what somebody handed over: the program's own URLs go to their handler, and the rest is sent to
    // Cadora as one request. Returns the error text of the request, empty when there is none.
    std::string open(const std::vector<std::string>& urisAndPaths);

    // The files of the earliest request that the provider took, and that this was not called for yet, have
    // been dealt with. Who sent it can ask for the problems, each a sentence that names the file.
    void staged(const std::vector<std::string>& problems);

private:
    struct Request {
        // Empty where the request came with a start of the program.
        QString caller;
        std::vector<std::string> problems{};
        bool isStaged = false;
    };

    using Refusal = dbus::ApplicationAdaptor::Refusal;

    dbus::ApplicationAdaptor::Calls calls();
    void takePlatformData(const QVariantMap& platformData);
    Refusal activate();
    Refusal activateAction(const QString& name);
    std::string send(const std::vector<std::string>& urisAndPaths, const std::string& userData,
                     const QString& caller);
    void answerWaiting();
    void openOwnURL(const std::string& text);

    QDBusConnection bus_;
    SystemLog& systemLog_;
    dbus::BusObject object_;
    ServicesProvider* provider_ = nullptr;
    std::function<void()> reopenHandler_;
    std::function<void(const Activation&)> activationHandler_;
    std::function<void()> giveWayHandler_;
    std::function<URLReception(const URL&)> urlHandler_;
    std::function<void()> busLostHandler_;
    // In the order in which they came.
    std::deque<Request> requests_;
    // The questions for problems that are not known yet.
    std::vector<QDBusMessage> waiting_;
};

} // namespace cadora
