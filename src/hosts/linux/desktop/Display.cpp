#include "hosts/linux/desktop/Display.h"

#include "hosts/linux/system/FileDescriptor.h"

#include <QDir>
#include <QLibraryInfo>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

namespace cadora {

namespace {

std::string environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool xServerAnswers() {
    if (environmentVariable("DISPLAY").empty()) {
        return false;
    }
    // Never null, also when nobody answers.
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(nullptr, nullptr), &xcb_disconnect);
    return xcb_connection_has_error(connection.get()) == 0;
}

bool waylandCompositorAnswers() {
    const std::string name = environmentVariable("WAYLAND_DISPLAY");
    const std::string path =
        name.starts_with('/') ? name : environmentVariable("XDG_RUNTIME_DIR") + "/" + name;
    sockaddr_un address{};
    if (name.empty() || path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return socket && connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

// Qt's way to Wayland is a package of its own.
bool qtKnowsWayland() {
    const QDir platforms(QLibraryInfo::path(QLibraryInfo::PluginsPath) + QStringLiteral("/platforms"));
    return !platforms.entryList({QStringLiteral("libqwayland*.so")}, QDir::Files).isEmpty();
}

} // namespace

Display findDisplay() {
    // One that draws into memory, for tests, or straight to the screen.
    const std::string platform = environmentVariable("QT_QPA_PLATFORM");
    if (!platform.empty() && !platform.starts_with("xcb") && !platform.starts_with("wayland")) {
        return Display::present;
    }
    const bool present = xServerAnswers() || (waylandCompositorAnswers() && qtKnowsWayland());
    return present ? Display::present : Display::absent;
}

std::string whyDisplayIsAbsent() {
    const std::string wayland = environmentVariable("WAYLAND_DISPLAY");
    const std::string x11 = environmentVariable("DISPLAY");
    if (waylandCompositorAnswers()) {
        return "The package qt6-wayland is missing, without which no window can be shown on this desktop.";
    }
    if (wayland.empty() && x11.empty()) {
        return {};
    }
    return "Nobody answers at the display “" + (wayland.empty() ? x11 : wayland) + "”.";
}

} // namespace cadora
