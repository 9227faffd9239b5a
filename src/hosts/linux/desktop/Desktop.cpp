#include "hosts/linux/desktop/Desktop.h"

#include "hosts/linux/desktop/Display.h"
#include "hosts/linux/desktop/HeadlessApplication.h"
#include "hosts/linux/desktop/QtApplication.h"

#include <QApplication>
#include <QDBusConnection>

#include <utility>

namespace cadora {

std::unique_ptr<QCoreApplication> makeQtApplication(int& argumentCount, char** arguments) {
    QCoreApplication::setApplicationName("Cadora Helper");
    if (findDisplay() == Display::present) {
        return std::make_unique<QApplication>(argumentCount, arguments);
    }
    return std::make_unique<QCoreApplication>(argumentCount, arguments);
}

bool canShowWindows() {
    return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr;
}

Desktop makeDesktop(MainActor& mainActor, DBusApplication& services, FileManagerEntries& entries,
                    const std::filesystem::path& bundle) {
    if (!canShowWindows()) {
        return {std::make_unique<HeadlessApplication>(services, entries, bundle), [] {}};
    }
    auto shown =
        std::make_unique<QtApplication>(mainActor, services, entries, QDBusConnection::sessionBus(), bundle);
    const auto showMenus = [application = shown.get()] { application->showMenusUnlessInPanel(); };
    return {std::move(shown), showMenus};
}

} // namespace cadora
