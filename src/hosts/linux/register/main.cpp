// cadora-register: makes the installation in FOLDER known to the user's desktop, and unknown again.
//
//   cadora-register -r FOLDER   registers it, or brings its entries up to date
//   cadora-register -u FOLDER   takes that back and removes the program's settings

#include "base/Error.h"
#include "hosts/linux/bus/SessionBus.h"
#include "hosts/linux/register/DesktopMemory.h"
#include "hosts/linux/register/Registration.h"
#include "hosts/linux/system/PosixProcessLauncher.h"

#include <gio/gio.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace cadora {

namespace {

constexpr int usageError = 64; // EX_USAGE of sysexits.h

void report(const std::string& problem) {
    std::fprintf(stderr, "cadora-register: %s\n", problem.c_str());
}

// A bus that runs may have looked for services before there was a folder of them. Without a bus, the next one
// sees what is there.
void reloadBus() {
    std::string reason;
    if (const auto bus = gio::openSessionBus(reason)) {
        const gio::Owned<GVariant> ignored(g_dbus_connection_call_sync(
            bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "ReloadConfig", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    }
}

int usage() {
    std::fputs("usage: cadora-register -r FOLDER | -u FOLDER\n", stderr);
    return usageError;
}

int run(const std::vector<std::string>& arguments) {
    if (arguments.size() != 2 || arguments[1].empty() || (arguments[0] != "-r" && arguments[0] != "-u")) {
        return usage();
    }
    // Without links, as the program that runs knows its own place.
    std::filesystem::path folder = std::filesystem::weakly_canonical(arguments[1]);
    folder = folder.has_filename() ? folder : folder.parent_path();
    PosixProcessLauncher launcher;
    int status = EXIT_SUCCESS;
    Registration registration(XDGFolders::ofUser(), folder, launcher, [&status](const std::string& problem) {
        report(problem);
        status = EXIT_FAILURE;
    });
    if (arguments[0] == "-r") {
        registration.add();
    } else if (!registration.isOfAnotherFolder()) {
        registration.remove();
        forgetNemoSwitch();
        forgetPanelItem();
    }
    reloadBus();
    return status;
}

} // namespace

} // namespace cadora

int main(int argc, char** argv) {
    try {
        return cadora::run({argv + 1, argv + argc});
    } catch (...) {
        cadora::report(cadora::errorText(std::current_exception()));
        return EXIT_FAILURE;
    }
}
