#pragma once

#include "hosts/linux/bus/DBusApplication.h"
#include "hosts/linux/desktop/QtAlerts.h"
#include "hosts/linux/desktop/QtStatusItem.h"
#include "hosts/linux/desktop/QtWindow.h"
#include "hosts/linux/file-managers/FileManagerEntries.h"
#include "platform/Application.h"

#include <QPointer>

#include <chrono>
#include <filesystem>
#include <memory>
#include <vector>

namespace cadora {

// The program on a desktop, with Qt Widgets. There must be a QApplication, which outlives this. Main thread
// only.
class QtApplication : public Application {
public:
    // What is passed by reference must outlive the application.
    QtApplication(MainActor& mainActor, DBusApplication& services, FileManagerEntries& entries,
                  QDBusConnection bus, std::filesystem::path bundle);

    void setActivationPolicy(ActivationPolicy) override {}
    void setServicesProvider(ServicesProvider& provider) override { services_.setServicesProvider(provider); }
    void updateDynamicServices() override { entries_.refresh(); }
    void activateIgnoringOtherApps() override;
    CancelAction runModal(Alert alert, Completion<int> completion) override;
    std::unique_ptr<StatusItem> makeStatusItem() override;
    std::shared_ptr<Window> makeWindow(const WindowDescription& description,
                                       WindowDelegate* delegate) override;
    std::vector<std::shared_ptr<Window>> windows() override;
    std::filesystem::path bundlePath() override { return bundle_; }
    std::filesystem::path registrationToolPath() override { return bundle_ / "bin" / "cadora-register"; }
    void terminate() override;

    bool showsWindow() const;

    // The user opened the program: where no panel shows the status item within that time, its menu comes in a
    // window, beside those that are there.
    void showMenusUnlessInPanel(std::chrono::milliseconds patience);

private:
    void showMenuWindow(QWidget& menu);

    DBusApplication& services_;
    FileManagerEntries& entries_;
    QDBusConnection bus_;
    std::filesystem::path bundle_;
    QtAlerts alerts_;
    std::vector<std::weak_ptr<QtWindow>> windows_;
    std::vector<QPointer<QtStatusItem>> statusItems_;
};

} // namespace cadora
