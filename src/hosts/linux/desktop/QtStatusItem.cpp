#include "hosts/linux/desktop/QtStatusItem.h"

#include "hosts/linux/desktop/Icons.h"
#include "hosts/linux/desktop/QtColors.h"
#include "hosts/linux/desktop/QtText.h"
#include "hosts/linux/desktop/QtWindow.h"
#include "hosts/linux/desktop/ShowInFront.h"

#include <QApplication>
#include <QCursor>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QEvent>

#include <chrono>
#include <utility>

namespace cadora {

namespace {

constexpr const char* watcherName = "org.kde.StatusNotifierWatcher";
constexpr const char* watcherPath = "/StatusNotifierWatcher";

// A panel that has just appeared as an older tray may still become a newer one.
constexpr std::chrono::seconds newerPanelPatience(3);
constexpr std::chrono::milliseconds answerPatience(5000);

// Also where this program's windows reach the compositor by way of X11.
bool isWaylandDesktop() {
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland")) ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

} // namespace

QtStatusItem::QtStatusItem(QDBusConnection bus)
    : bus_(std::move(bus)),
      watcher_(QString::fromLatin1(watcherName), bus_, QDBusServiceWatcher::WatchForRegistration),
      xEmbedTray_([this] { waitForNewerPanel(); }) {
    patience_.setSingleShot(true);
    connect(&patience_, &QTimer::timeout, this, [this] {
        if (xEmbedTray_.isPresent()) {
            makeIcon(Tray::xEmbed);
        }
    });
    connect(&watcher_, &QDBusServiceWatcher::serviceRegistered, this, &QtStatusItem::lookForPanel);
    bus_.connect(QString(), QString::fromLatin1(watcherPath), QString::fromLatin1(watcherName),
                 QStringLiteral("StatusNotifierHostRegistered"), this, SLOT(lookForPanel()));
    ownMenu_.widget().installEventFilter(this);
    followColors();
    lookForPanel();
}

bool QtStatusItem::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::ApplicationPaletteChange) {
        followColors();
    }
    return QObject::eventFilter(watched, event);
}

void QtStatusItem::followColors() {
    // Lines that only tell something look like what can't be chosen, but are there to be read.
    QPalette colors = QApplication::palette();
    const QColor quiet = color(ColorRole::tertiaryLabel, colors);
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        colors.setColor(QPalette::Disabled, role, quiet);
    }
    ownMenu_.widget().setPalette(colors);
    if (icon_) {
        icon_->setIcon(statusIcon());
    }
}

void QtStatusItem::setButton(const std::string&, const std::string&, const std::string& toolTip) {
    toolTip_ = qtText(toolTip);
    if (icon_) {
        icon_->setToolTip(toolTip_);
    }
}

void QtStatusItem::setMenu(Menu menu, MenuTarget& target) {
    menu_ = std::move(menu);
    target_ = &target;
    if (!std::exchange(menuIsNew_, true)) {
        QMetaObject::invokeMethod(this, &QtStatusItem::showNewMenu, Qt::QueuedConnection);
    }
}

// Once for all changes of a turn: what widgets let go in it they keep until its end.
void QtStatusItem::showNewMenu() {
    menuIsNew_ = false;
    panelMenu_.show(menu_, *target_);
    ownMenu_.show(menu_, *target_);
    if (window_ && window_->isVisible()) {
        window_->showMenu(menu_, *target_);
    }
}

void QtStatusItem::setVisibility(Visibility visibility) {
    visibility_ = visibility;
    if (icon_) {
        icon_->setVisible(visibility == Visibility::visible);
    } else {
        lookForPanel();
    }
}

void QtStatusItem::lookForPanel() {
    if (icon_ || visibility_ == Visibility::hidden) {
        return;
    }
    askForPanel([this](bool isThere) {
        if (isThere) {
            makeIcon(Tray::statusNotifier);
        } else if (xEmbedTray_.isPresent()) {
            waitForNewerPanel();
        }
    });
}

void QtStatusItem::askForPanel(std::function<void(bool)> answer) {
    QDBusMessage question = QDBusMessage::createMethodCall(
        QString::fromLatin1(watcherName), QString::fromLatin1(watcherPath),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    question << QString::fromLatin1(watcherName) << QStringLiteral("IsStatusNotifierHostRegistered");
    question.setAutoStartService(false);
    auto* const call =
        new QDBusPendingCallWatcher(bus_.asyncCall(question, static_cast<int>(answerPatience.count())), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [call, answer = std::move(answer)] {
        const QDBusPendingReply<QDBusVariant> reply = *call;
        call->deleteLater();
        answer(reply.isValid() && reply.value().variant().toBool());
    });
}

void QtStatusItem::waitForNewerPanel() {
    if (!icon_ && visibility_ == Visibility::visible) {
        patience_.start(newerPanelPatience);
    }
}

void QtStatusItem::makeIcon(Tray tray) {
    if (icon_ || visibility_ == Visibility::hidden) {
        return;
    }
    patience_.stop();
    tray_ = tray;
    icon_ = std::make_unique<QSystemTrayIcon>(statusIcon());
    icon_->setToolTip(toolTip_);
    icon_->setContextMenu(tray == Tray::statusNotifier ? &panelMenu_.widget() : &ownMenu_.widget());
    connect(icon_.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger) {
            openMenu();
        }
    });
    icon_->show();
}

// The panel asks this program to open the menu, and only X11 lets a program know where the pointer is.
void QtStatusItem::openMenu() {
    if (isWaylandDesktop()) {
        prepareMenuWindow();
        showInFront(*window_);
    } else {
        ownMenu_.widget().popup(QCursor::pos());
    }
}

void QtStatusItem::showMenuUnlessInPanel(std::chrono::milliseconds patience,
                                         std::function<void(QWidget&)> show) {
    askForPanel([this, patience, show = std::move(show)](bool panelIsThere) {
        if (isInPanel(panelIsThere)) {
            return;
        }
        if (patience > std::chrono::milliseconds::zero()) {
            QTimer::singleShot(patience, this, [this, show] {
                showMenuUnlessInPanel(std::chrono::milliseconds::zero(), show);
            });
            return;
        }
        prepareMenuWindow();
        if (window_) {
            show(*window_);
        }
    });
}

bool QtStatusItem::isInPanel(bool panelIsThere) const {
    if (!icon_) {
        return panelIsThere || xEmbedTray_.isPresent();
    }
    return tray_ == Tray::statusNotifier ? panelIsThere : xEmbedTray_.isPresent();
}

void QtStatusItem::prepareMenuWindow() {
    if (target_ == nullptr) {
        return;
    }
    if (!window_) {
        window_ = std::make_unique<MenuWindow>();
    }
    if (!window_->isVisible()) {
        window_->showMenu(menu_, *target_);
        centerOnScreen(*window_);
    }
}

} // namespace cadora
