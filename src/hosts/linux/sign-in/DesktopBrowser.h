#pragma once

#include "hosts/linux/sign-in/Browser.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QVariantMap>

#include <map>
#include <string>

namespace cadora {

// The desktop's default browser: through the portal where there is one, else by xdg-open. A browser that was
// started outlives the program, and what it writes goes nowhere, since its messages may hold addresses.
class DesktopBrowser : public QObject, public Browser {
    Q_OBJECT

public:
    explicit DesktopBrowser(QDBusConnection bus);

    void open(const URL& page, const std::string& parentWindow, FailureHandler handler) override;

private Q_SLOTS:
    // Qt names the signal's arguments and, for us, the request that it is about.
    void portalAnswered(uint response, const QVariantMap& results, const QDBusMessage& message);

private:
    struct Request {
        URL page;
        FailureHandler handler;
    };

    void forget(const QString& requestPath);
    void openByCommand(const Request& request);

    QDBusConnection bus_;
    // Those that the portal has in hand, by the paths of their request objects.
    std::map<QString, Request> requests_;
    unsigned count_ = 0;
};

} // namespace cadora
