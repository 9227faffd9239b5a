#pragma once

#include "hosts/linux/bus/DBusApplication.h"
#include "hosts/linux/desktop/QtApplication.h"
#include "hosts/linux/file-managers/FileManagerEntries.h"
#include "platform/Application.h"

#include <QCoreApplication>

#include <filesystem>
#include <functional>
#include <memory>

namespace cadora {

// Qt's application object: with widgets where there is a display to show them on. `argumentCount` must
// outlive it.
std::unique_ptr<QCoreApplication> makeQtApplication(int& argumentCount, char** arguments);

// Whether the Qt application that runs can show anything.
bool canShowWindows();

// The application with what shows it, or without where nothing can be shown.
struct Desktop {
    std::unique_ptr<Application> application;
    // The same one; null where nothing can be shown.
    QtApplication* shown = nullptr;

    // The user opened the program again, which `reopen` is told.
    void reopen(const std::function<void()>& reopen) const;

    // The program has begun, and the user had opened it with that.
    void showFirst(const Activation& activation) const;
};

// What is passed by reference must outlive the desktop.
Desktop makeDesktop(MainActor& mainActor, DBusApplication& services, FileManagerEntries& entries,
                    const std::filesystem::path& bundle);

} // namespace cadora
