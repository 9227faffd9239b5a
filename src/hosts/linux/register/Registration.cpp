#include "hosts/linux/register/Registration.h"

#include "base/Error.h"
#include "base/UTF8.h"
#include "hosts/linux/files/DesktopQuoting.h"
#include "hosts/linux/files/PosixFileManager.h"
#include "hosts/linux/files/TextTemplate.h"
#include "hosts/linux/files/UserFile.h"
#include "hosts/linux/register/DefaultApplications.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace cadora {

namespace {

namespace fs = std::filesystem;

constexpr const char* name = "com.norvelant.cadora.mac";
constexpr const char* desktopEntry = "com.norvelant.cadora.mac.desktop";
constexpr const char* ownScheme = "x-scheme-handler/cadora";

// A file of the installation. One that is missing is an installation that is not whole.
std::string installed(const fs::path& path) {
    return PosixFileManager(std::nullopt).contents(path);
}

// Everything below the folder. Links are not followed.
std::set<fs::path> itemsBelow(const fs::path& folder) {
    std::set<fs::path> items;
    std::error_code error;
    for (fs::recursive_directory_iterator item(folder, error), end; !error && item != end;
         item.increment(error)) {
        items.insert(item->path());
    }
    return items;
}

bool holdsFileEndingIn(const fs::path& folder, std::string_view suffix) {
    std::error_code error;
    for (fs::directory_iterator item(folder, error), end; !error && item != end; item.increment(error)) {
        if (item->path().filename().native().ends_with(suffix)) {
            return true;
        }
    }
    return false;
}

} // namespace

struct Registration::Record {
    std::set<fs::path> files;
    std::set<fs::path> folders;
    std::set<fs::path> caches; // files that a tool made which had not been there
};

Registration::Registration(XDGFolders folders, fs::path folder, ProcessLauncher& launcher,
                           std::function<void(const std::string&)> report)
    : folders_(std::move(folders)), folder_(std::move(folder)), launcher_(launcher),
      report_(std::move(report)) {}

void Registration::add() {
    for (const fs::path& path : {folder_, folders_.configHome, folders_.dataHome}) {
        // GIO looks for the program of an entry before it resolves a doubled percent sign.
        if (!canBeWrittenDown(path) || (path == folder_ && path.native().find('%') != std::string::npos)) {
            throw PlatformError("POSIX", EINVAL,
                                "“" + repairedUTF8(path.native()) +
                                    "” can’t be named in the desktop’s entries");
        }
    }
    const std::map<fs::path, std::string> wanted = entries();
    Record record = readRecord();
    try {
        writeEntries(wanted, record);
        refreshCaches(record);
    } catch (...) {
        // What was done so far can be taken back.
        writeRecord(record);
        throw;
    }
    writeRecord(record);
    removeAssociations(ownScheme);
}

void Registration::writeEntries(const std::map<fs::path, std::string>& wanted, Record& record) {
    const std::set<fs::path> before = record.files;
    for (const auto& [file, text] : wanted) {
        if (user_file::read(file) != text) {
            user_file::write(file, text, user_file::Kind::data, record.folders);
        }
        record.files.insert(file);
    }
    for (const fs::path& file : before) {
        if (!wanted.contains(file)) {
            user_file::remove(file);
            record.files.erase(file);
        }
    }
}

void Registration::remove() {
    Record record = readRecord();
    if (record.files.empty() && user_file::read(folders_.dataHome / "applications" / desktopEntry)) {
        // It was registered, and the record is lost.
        attempt([&] {
            for (const auto& [file, text] : entries()) {
                record.files.insert(file);
            }
        });
    }
    const bool wasRegistered = !record.files.empty();
    for (const fs::path& file : record.files) {
        attempt([&] { user_file::remove(file); });
    }
    if (wasRegistered) {
        refreshCaches(record);
        removeUnneededCaches(record);
    }
    removeAssociations({});
    removeStartsAtLogin();
    attempt([&] {
        const fs::path settings = folders_.configHome / name;
        if (std::error_code error; fs::exists(fs::symlink_status(settings, error))) {
            PosixFileManager(std::nullopt).removeItem(settings);
        }
    });
    user_file::removeEmptyFolders(record.folders);
    attempt([&] { user_file::remove(folder_ / "share/registration/record"); });
}

Registration::Record Registration::readRecord() const {
    Record record;
    std::string text = user_file::read(folder_ / "share/registration/record").value_or("");
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::size_t space = line.find(' ');
        const std::string_view kind = line.substr(0, space);
        const fs::path path = line.substr(std::min(space, line.size() - 1) + 1);
        if (!path.is_absolute()) {
            continue;
        }
        if (kind == "file") {
            record.files.insert(path);
        } else if (kind == "folder") {
            record.folders.insert(path);
        } else if (kind == "cache") {
            record.caches.insert(path);
        }
    }
    return record;
}

void Registration::writeRecord(const Record& record) const {
    std::string text;
    for (const auto& [kind, paths] :
         {std::pair("file ", &record.files), {"folder ", &record.folders}, {"cache ", &record.caches}}) {
        for (const fs::path& path : *paths) {
            text.append(kind).append(path.native()).append("\n");
        }
    }
    std::set<fs::path> none;
    user_file::write(folder_ / "share/registration/record", text, user_file::Kind::data, none);
}

std::map<fs::path, std::string> Registration::entries() const {
    const fs::path templates = folder_ / "share/registration";
    const fs::path& data = folders_.dataHome;
    const auto entry = [&](const std::string& file) {
        return filledIn(installed(templates / file), {{"helper", (folder_ / "bin/cadora-helper").string()}});
    };
    std::map<fs::path, std::string> entries{
        {data / "applications" / desktopEntry, entry(desktopEntry)},
        {data / "dbus-1/services" / (std::string(name) + ".service"), entry(std::string(name) + ".service")},
        {data / "metainfo" / (std::string(name) + ".metainfo.xml"),
         installed(templates / (std::string(name) + ".metainfo.xml"))},
        {data / "mime/packages/cadora-helper.xml", installed(templates / "cadora-helper.xml")},
    };
    const fs::path icons = folder_ / "share/icons";
    for (const fs::path& icon : itemsBelow(icons)) {
        if (std::error_code error; fs::is_regular_file(icon, error)) {
            entries.emplace(data / "icons" / icon.lexically_relative(icons), installed(icon));
        }
    }
    return entries;
}

bool Registration::isOfAnotherFolder() const {
    const auto entry = user_file::read(folders_.dataHome / "applications" / desktopEntry);
    return entry && entry->find(startsHelper()) == std::string::npos;
}

// The line of an entry that starts the program of this folder, but for its end.
std::string Registration::startsHelper() const {
    return "\nExec=" + execWord((folder_ / "bin/cadora-helper").string());
}

void Registration::refreshCaches(Record& record) {
    const fs::path& data = folders_.dataHome;
    runNoting(record, "update-desktop-database", {(data / "applications").string()}, data / "applications");
    if (std::error_code error; fs::is_directory(data / "mime/packages", error)) {
        runNoting(record, "update-mime-database", {(data / "mime").string()}, data / "mime");
    }
    // Without a cache the icons are found all the same.
    const fs::path theme = data / "icons/hicolor";
    if (std::error_code error; fs::exists(theme / "icon-theme.cache", error)) {
        runNoting(record, "gtk-update-icon-cache",
                  {"--quiet", "--force", "--ignore-theme-index", theme.string()}, theme);
    }
}

// Runs a tool of the desktop, where there is one, and notes what it brings into being.
void Registration::runNoting(Record& record, const char* tool, const std::vector<std::string>& arguments,
                             const fs::path& within) {
    const fs::path program = fs::path("/usr/bin") / tool;
    if (!launcher_.isExecutableFile(program)) {
        return;
    }
    const std::set<fs::path> before = itemsBelow(within);
    launcher_.run(program, arguments);
    for (const fs::path& item : itemsBelow(within)) {
        if (!before.contains(item)) {
            std::error_code error;
            (fs::is_directory(item, error) ? record.folders : record.caches).insert(item);
        }
    }
}

// A cache that came with the entries stays only where others have use for it now.
void Registration::removeUnneededCaches(Record& record) {
    const fs::path applications = folders_.dataHome / "applications";
    const fs::path types = folders_.dataHome / "mime";
    const bool areApplicationsLeft = holdsFileEndingIn(applications, ".desktop");
    const bool areTypesLeft = holdsFileEndingIn(types / "packages", ".xml");
    for (const fs::path& cache : record.caches) {
        const bool isOfApplications = cache.parent_path() == applications;
        if (isOfApplications ? !areApplicationsLeft : !areTypesLeft) {
            attempt([&] { user_file::remove(cache); });
        }
    }
}

void Registration::removeAssociations(std::string_view keptType) {
    const fs::path applications = folders_.dataHome / "applications";
    for (const fs::path& folder : {folders_.configHome, applications}) {
        std::error_code error;
        for (fs::directory_iterator item(folder, error), end; !error && item != end; item.increment(error)) {
            const std::string file = item->path().filename();
            if (!file.ends_with("mimeapps.list") && file != "defaults.list") {
                continue;
            }
            attempt([&] {
                const std::string list = user_file::read(item->path()).value_or("");
                const std::string kept = withoutApplication(list, desktopEntry, keptType);
                std::set<fs::path> none;
                if (kept.empty() && !list.empty()) {
                    user_file::remove(item->path());
                } else if (kept != list) {
                    user_file::write(item->path(), kept, user_file::Kind::data, none);
                }
            });
        }
    }
}

// Session managers copy the entry to where they look for what to start, under its name or one of their own.
void Registration::removeStartsAtLogin() {
    std::error_code error;
    for (fs::directory_iterator item(folders_.configHome / "autostart", error), end; !error && item != end;
         item.increment(error)) {
        if (item->path().extension() != ".desktop") {
            continue;
        }
        attempt([&] {
            const std::string entry = user_file::read(item->path()).value_or("");
            if (entry.find(startsHelper()) != std::string::npos) {
                user_file::remove(item->path());
            }
        });
    }
}

void Registration::attempt(const std::function<void()>& step) {
    try {
        step();
    } catch (const Error& error) {
        report_(error.text());
    }
}

} // namespace cadora
