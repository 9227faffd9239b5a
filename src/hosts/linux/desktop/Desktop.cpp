#include "hosts/linux/desktop/Desktop.h"

#include "hosts/linux/desktop/Display.h"
#include "hosts/linux/desktop/HeadlessApplication.h"
#include "hosts/linux/desktop/ShowInFront.h"

#include <QApplication>
#include <QDBusConnection>

#include <chrono>
#include <utility>

namespace cadora {

namespace {

// At login the panel may come a moment later than the helper; what the user clicks on comes to a finished
// desktop.
constexpr std::chrono::milliseconds panelPatience = std::chrono::seconds(2);

} // namespace

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
        services.setGiveWayHandler([&mainActor] {
            // Behind the files that were taken and are still to be copied.
            mainActor.post([] { QCoreApplication::exit(); });
        });
        return {std::make_unique<HeadlessApplication>(services, entries, bundle)};
    }
    auto shown =
        std::make_unique<QtApplication>(mainActor, services, entries, QDBusConnection::sessionBus(), bundle);
    services.setActivationHandler(keepActivation);
    QtApplication* const application = shown.get();
    return {std::move(shown), application};
}

void Desktop::reopen(const std::function<void()>& reopen) const {
    const bool showedWindow = shown != nullptr && shown->showsWindow();
    reopen();
    // A window that has just come is the way in.
    if (shown != nullptr && (showedWindow || !shown->showsWindow())) {
        shown->showMenusUnlessInPanel(std::chrono::milliseconds::zero());
    }
}

void Desktop::showFirst(const Activation& activation) const {
    if (shown != nullptr && !shown->showsWindow()) {
        shown->showMenusUnlessInPanel(activation.isEmpty() ? panelPatience
                                                           : std::chrono::milliseconds::zero());
    }
}

} // namespace cadora
