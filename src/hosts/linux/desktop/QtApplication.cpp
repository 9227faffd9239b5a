#include "hosts/linux/desktop/QtApplication.h"

#include "hosts/linux/desktop/Icons.h"

#include <QApplication>

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
        front->raise();
        front->activateWindow();
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

void QtApplication::showMenusUnlessInPanel() {
    for (const auto& item : statusItems_) {
        if (item) {
            item->showMenuUnlessInPanel();
        }
    }
}

} // namespace cadora
