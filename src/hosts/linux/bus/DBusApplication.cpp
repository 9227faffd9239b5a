#include "hosts/linux/bus/DBusApplication.h"

#include "base/Error.h"
#include "base/PathRules.h"
#include "base/UTF8.h"
#include "hosts/linux/files/URIList.h"

#include <QDBusConnectionInterface>
#include <QDBusReply>

#include <algorithm>
#include <utility>

namespace cadora {

namespace {

constexpr std::size_t mostRequestsRemembered = 64;

std::vector<std::string> texts(const QStringList& list) {
    std::vector<std::string> result;
    for (const QString& text : list) {
        result.push_back(text.toStdString());
    }
    return result;
}

dbus::ApplicationAdaptor::Refusal refusal(const std::string& reason) {
    if (reason.empty()) {
        return {};
    }
    return {QString::fromLatin1(dbus::requestRefused), QString::fromStdString(reason)};
}

} // namespace

DBusApplication::DBusApplication(QDBusConnection bus, SystemLog& systemLog)
    : bus_(std::move(bus)), systemLog_(systemLog), object_(bus_) {
    // The adaptors belong to the object, which deletes them.
    new dbus::ServicesAdaptor(
        object_, [this](const QStringList& uris, const QString& userData, const QString& caller) {
            return QString::fromStdString(send(texts(uris), userData.toStdString(), caller));
        });
    new dbus::StagingAdaptor(object_, [this](const QDBusMessage& message) {
        waiting_.push_back(message);
        answerWaiting();
    });
    new dbus::ApplicationAdaptor(object_, bus_, calls());
    bus_.registerObject(QString::fromLatin1(dbus::objectPath), &object_, QDBusConnection::ExportAdaptors);
}

DBusApplication::~DBusApplication() {
    bus_.unregisterObject(QString::fromLatin1(dbus::objectPath));
}

dbus::ApplicationAdaptor::Calls DBusApplication::calls() {
    return {
        [this](const QVariantMap& platformData) { takePlatformData(platformData); },
        [this] { return activate(); },
        [this](const QStringList& uris) { return refusal(open(texts(uris))); },
        [this](const QString& name) { return activateAction(name); },
    };
}

void DBusApplication::takePlatformData(const QVariantMap& platformData) {
    const auto text = [&](const char* key) {
        return platformData.value(QString::fromLatin1(key)).toString().toStdString();
    };
    if (activationHandler_) {
        activationHandler_({text(dbus::activationToken), text(dbus::startupID)});
    }
}

DBusApplication::Refusal DBusApplication::activate() {
    if (giveWayHandler_) {
        return {QString::fromLatin1(dbus::noDisplay),
                QStringLiteral("Cadora Helper runs without a display.")};
    }
    if (reopenHandler_) {
        reopenHandler_();
    }
    return {};
}

DBusApplication::Refusal DBusApplication::activateAction(const QString& name) {
    if (name != QLatin1String(dbus::giveWayAction) || !giveWayHandler_) {
        return refusal("There is no action “" + name.toStdString() + "”.");
    }
    provider_ = nullptr;
    giveWayHandler_();
    return {};
}

DBusApplication::Claim DBusApplication::claimName() {
    const auto failed = [](const QDBusError& error) {
        return PlatformError("DBus", error.type(),
                             "The session bus did not give the name " + std::string(dbus::busName) + ": " +
                                 error.message().toStdString());
    };
    if (!bus_.isConnected()) {
        throw failed(bus_.lastError());
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        bus_.interface()->registerService(QString::fromLatin1(dbus::busName));
    if (!reply.isValid()) {
        throw failed(reply.error());
    }
    return reply.value() == QDBusConnectionInterface::ServiceRegistered ? Claim::first : Claim::anotherRuns;
}

void DBusApplication::setServicesProvider(ServicesProvider& provider) {
    provider_ = &provider;
}

void DBusApplication::setReopenHandler(std::function<void()> handler) {
    reopenHandler_ = std::move(handler);
}

void DBusApplication::setActivationHandler(std::function<void(const Activation&)> handler) {
    activationHandler_ = std::move(handler);
}

void DBusApplication::setGiveWayHandler(std::function<void()> handler) {
    giveWayHandler_ = std::move(handler);
}

void DBusApplication::setURLHandler(std::function<URLReception(const URL&)> handler) {
    urlHandler_ = std::move(handler);
}

void DBusApplication::setBusLostHandler(std::function<void()> handler) {
    object_.onBusLost = std::move(handler);
}

std::string DBusApplication::open(const std::vector<std::string>& urisAndPaths) {
    std::vector<std::string> toSend;
    for (const std::string& text : urisAndPaths) {
        if (isOwnURL(text)) {
            openOwnURL(text);
        } else {
            toSend.push_back(text);
        }
    }
    return toSend.empty() && !urisAndPaths.empty() ? std::string() : send(toSend, {}, {});
}

std::string DBusApplication::send(const std::vector<std::string>& urisAndPaths, const std::string& userData,
                                  const QString& caller) {
    std::string error;
    if (provider_ == nullptr) {
        return "Cadora Helper is still starting.";
    }
    const URIListPasteboard pasteboard(urisAndPaths);
    provider_->sendToCadora(pasteboard, userData, error);
    if (error.empty()) {
        Request request{caller};
        for (const std::string& uri : pasteboard.malformedFileURIs()) {
            request.problems.push_back("“" + repairedUTF8(lastPathComponent(uri)) +
                                       "” has an address that is not well-formed");
            systemLog_.log("[Cadora Helper] stage failed: " + request.problems.back());
        }
        requests_.push_back(std::move(request));
    }
    return error;
}

void DBusApplication::staged(const std::vector<std::string>& problems) {
    const auto request = std::find_if(requests_.begin(), requests_.end(),
                                      [](const Request& known) { return !known.isStaged; });
    if (request == requests_.end()) {
        return;
    }
    request->isStaged = true;
    request->problems.insert(request->problems.end(), problems.begin(), problems.end());
    answerWaiting();
    // Most callers never ask.
    while (requests_.size() > mostRequestsRemembered && requests_.front().isStaged) {
        requests_.pop_front();
    }
}

void DBusApplication::answerWaiting() {
    std::erase_if(waiting_, [this](const QDBusMessage& message) {
        const auto isCallers = [&](const Request& request) { return request.caller == message.service(); };
        QStringList problems;
        for (const Request& request : requests_) {
            if (!isCallers(request)) {
                continue;
            }
            if (!request.isStaged) {
                return false;
            }
            for (const std::string& problem : request.problems) {
                problems.append(QString::fromStdString(problem));
            }
        }
        std::erase_if(requests_, isCallers);
        bus_.send(message.createReply(problems));
        return true;
    });
}

void DBusApplication::openOwnURL(const std::string& text) {
    const auto url = URL::parse(text);
    if (!url || !urlHandler_ || urlHandler_(*url) == URLReception::notAwaited) {
        // Its query may hold a token.
        systemLog_.log("[Cadora Helper] dropped a URL that nobody waits for: " +
                       (url ? url->origin() : "it is not well-formed"));
    }
}

} // namespace cadora
