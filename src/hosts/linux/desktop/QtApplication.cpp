#include "hosts/linux/desktop/QtApplication.h"

#include "hosts/linux/desktop/Icons.h"
#include "hosts/linux/desktop/ShowInFront.h"

#include <QApplication>
#include <QScreen>

#include <algorithm>
#include <utility>

namespace cadora {

QtApplication::QtApplication(MainActor& mainActor, DBusApplication& services, FileManagerEntries& entries,
                             QDBusConnection bus, std::filesystem::path bundle)
    : services_(services), entries_(entries), bus_(std::move(bus)), bundle_(std::move(bundle)),
      alerts_(mainActor) {
    QApplication::setWindowIcon(applicationIcon());
    QApplication::setDesktopFileName(QString::fromLatin1(dbus::busName));
    QApplication::setQuitOnLastWindowClosed(false);
}

void QtApplication::activateIgnoringOtherApps() {
    if (QApplication::activeWindow() != nullptr) {
        return;
    }
    QWidget* front = QApplication::activeModalWidget();
    for (const auto& window : windows_) {
        const auto shown = window.lock();
        if (shown && shown->widget().isVisible()) {
            shown->widget().raise();
            front = QApplication::activeModalWidget() ? front : &shown->widget();
        }
    }
    if (front) {
        showInFront(*front);
    }
}

CancelAction QtApplication::runModal(Alert alert, Completion<int> completion) {
    return alerts_.run(std::move(alert), std::move(completion));
}

std::unique_ptr<StatusItem> QtApplication::makeStatusItem() {
    auto item = std::make_unique<QtStatusItem>(bus_);
    statusItems_.emplace_back(item.get());
    return item;
}

std::shared_ptr<Window> QtApplication::makeWindow(const WindowDescription& description,
                                                  WindowDelegate* delegate) {
    std::erase_if(windows_, [](const auto& window) { return window.expired(); });
    auto window = std::make_shared<QtWindow>(description, delegate);
    windows_.push_back(window);
    return window;
}

std::vector<std::shared_ptr<Window>> QtApplication::windows() {
    std::vector<std::shared_ptr<Window>> result;
    for (const auto& window : windows_) {
        if (auto existing = window.lock()) {
            result.push_back(std::move(existing));
        }
    }
    return result;
}

// Not quit(), which asks each window to close first, and would wait for an open alert.
void QtApplication::terminate() {
    QMetaObject::invokeMethod(qApp, [] { QCoreApplication::exit(); }, Qt::QueuedConnection);
}

bool QtApplication::showsWindow() const {
    return std::any_of(windows_.begin(), windows_.end(), [](const auto& window) {
        const auto existing = window.lock();
        return existing && existing->widget().isVisible();
    });
}

void QtApplication::showMenusUnlessInPanel(std::chrono::milliseconds patience) {
    for (const auto& item : statusItems_) {
        if (item) {
            item->showMenuUnlessInPanel(patience, [this](QWidget& menu) { showMenuWindow(menu); });
        }
    }
}

// As far beside the others as the screen has space and lets windows be placed, and behind them in any case.
void QtApplication::showMenuWindow(QWidget& menu) {
    QWidget* other = nullptr;
    for (const auto& window : windows_) {
        const auto existing = window.lock();
        other = existing && existing->widget().isVisible() ? &existing->widget() : other;
    }
    menu.setAttribute(Qt::WA_ShowWithoutActivating, other != nullptr);
    if (other == nullptr) {
        showInFront(menu);
        return;
    }
    const QRect there = other->frameGeometry();
    const QRect space = other->screen()->availableGeometry();
    const int gap = 12;
    menu.move(std::min(there.right() + gap, space.right() - menu.width()), there.top());
    menu.show();
    showInFront(*other);
}

} // namespace cadora
