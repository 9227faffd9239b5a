#pragma once

#include "hosts/linux/desktop/MenuWindow.h"
#include "hosts/linux/desktop/QtMenu.h"
#include "hosts/linux/desktop/XEmbedTray.h"
#include "platform/StatusItem.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QSystemTrayIcon>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

namespace cadora {

// The item in the desktop's panel: a StatusNotifierItem, or a window in an older tray. It appears when a
// panel does, whichever starts first, and again when the panel comes back. Main thread only.
class QtStatusItem : public QObject, public StatusItem {
    Q_OBJECT

public:
    explicit QtStatusItem(QDBusConnection bus);

    void setButton(const std::string& symbolName, const std::string& accessibilityDescription,
                   const std::string& toolTip) override;
    void setMenu(Menu menu, MenuTarget& target) override;
    void setVisibility(Visibility visibility) override;

    // Has the menu shown in a window unless a panel shows the item within that time: the way in where there
    // is no panel for it. `show` is called with the window, which may be visible already.
    void showMenuUnlessInPanel(std::chrono::milliseconds patience, std::function<void(QWidget& window)> show);

    bool eventFilter(QObject* watched, QEvent* event) override;

private Q_SLOTS:
    void lookForPanel();

private:
    // Qt decides at the first icon which of the two it speaks, for the life of the process.
    enum class Tray { statusNotifier, xEmbed };

    void showNewMenu();
    void followColors();
    void askForPanel(std::function<void(bool isThere)> answer);
    void waitForNewerPanel();
    void makeIcon(Tray tray);
    bool isInPanel(bool panelIsThere) const;
    void prepareMenuWindow();
    void openMenu();

    QDBusConnection bus_;
    QDBusServiceWatcher watcher_;
    XEmbedTray xEmbedTray_;
    QTimer patience_;
    QtMenu panelMenu_{QtMenu::Reader::panel};
    QtMenu ownMenu_{QtMenu::Reader::widgets};
    QString toolTip_;
    Menu menu_;
    bool menuIsNew_ = false;
    MenuTarget* target_ = nullptr;
    Visibility visibility_ = Visibility::visible;
    std::unique_ptr<QSystemTrayIcon> icon_;
    Tray tray_ = Tray::statusNotifier;
    std::unique_ptr<MenuWindow> window_;
};

} // namespace cadora
