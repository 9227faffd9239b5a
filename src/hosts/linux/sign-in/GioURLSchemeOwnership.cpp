#include "hosts/linux/sign-in/GioURLSchemeOwnership.h"

#include "base/Error.h"
#include "hosts/linux/bus/SessionBus.h"
#include "hosts/linux/files/DesktopQuoting.h"
#include "hosts/linux/files/TextTemplate.h"
#include "hosts/linux/files/UserFile.h"
#include "hosts/linux/sign-in/SignInTexts.h"

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace cadora {

namespace {

namespace fs = std::filesystem;

constexpr const char* desktopEntry = "com.norvelant.cadora.mac.desktop";
constexpr const char* schemeType = "x-scheme-handler/cadora";

// GIO keeps what it knows of the entries, and learns of a new one from the file system, a moment later.
constexpr auto entryPatience = std::chrono::seconds(5);
constexpr auto lookInterval = std::chrono::milliseconds(5);

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
using Application = std::unique_ptr<GAppInfo, Unref>;

Application ownEntry() {
    return Application(G_APP_INFO(g_desktop_app_info_new(desktopEntry)));
}

Application ownEntryOnceSeen() {
    const auto deadline = std::chrono::steady_clock::now() + entryPatience;
    Application entry = ownEntry();
    while (!entry && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(lookInterval);
        entry = ownEntry();
    }
    return entry;
}

bool isOwn(GAppInfo* application) {
    const char* const id = g_app_info_get_id(application);
    return id != nullptr && std::string_view(id) == desktopEntry;
}

} // namespace

GioURLSchemeOwnership::GioURLSchemeOwnership(XDGFolders folders, fs::path program)
    : folders_(std::move(folders)), program_(std::move(program)) {}

URLSchemeOwnership::Owner GioURLSchemeOwnership::claim(Claim claim) {
    using Kind = Owner::Kind;
    const Application present(g_app_info_get_default_for_type(schemeType, FALSE));
    if (present && isOwn(present.get())) {
        return {Kind::thisProgram, {}};
    }
    if (present && claim == Claim::ifFree) {
        return {Kind::anotherProgram, g_app_info_get_display_name(present.get())};
    }
    Application own = ownEntry();
    if (!own) {
        try {
            writeEntry();
        } catch (const Error& error) {
            return {Kind::nobody, error.text()};
        }
        own = ownEntryOnceSeen();
    }
    if (!own) {
        return {Kind::nobody, "the desktop does not see " + (folders_.dataHome / "applications").string()};
    }
    GError* error = nullptr;
    if (g_app_info_set_as_default_for_type(own.get(), schemeType, &error) == FALSE) {
        return {Kind::nobody, gio::takeReason(error)};
    }
    return {Kind::thisProgram, {}};
}

void GioURLSchemeOwnership::writeEntry() {
    std::set<fs::path> madeFolders;
    user_file::write(folders_.dataHome / "applications" / desktopEntry,
                     filledIn(sign_in_texts::linkHandler, {{"helper", program_.string()}}),
                     user_file::Kind::data, madeFolders);
}

} // namespace cadora
