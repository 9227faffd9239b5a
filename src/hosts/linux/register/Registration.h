#pragma once

#include "hosts/linux/files/XDGFolders.h"
#include "platform/ProcessLauncher.h"

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace cadora {

// What makes a program that is installed in a folder of the user's known to the user's desktop: its desktop
// entry with the URL scheme, its D-Bus service, icons, description and MIME types. What
// was written, and which folders and caches came into being by it, is recorded in the folder, so that taking
// it back leaves the rest as it was, byte for byte.
class Registration {
public:
    // `folder` is the absolute path of the installation. `report` is told, for a person, what went wrong
    // without stopping the rest. The launcher must outlive the object.
    Registration(XDGFolders folders, std::filesystem::path folder, ProcessLauncher& launcher,
                 std::function<void(const std::string&)> report);

    // Writes the entries, or brings those of an earlier version up to date. Gives back the files' types that
    // an earlier version claimed, also where the desktop noted that. Throws PlatformError.
    void add();

    // Whether the entries that the user has are those of an installation in another folder.
    bool isOfAnotherFolder() const;

    // Takes back what add() did, and removes the program's own settings, what the desktop noted about it and
    // a start at login that the user arranged. For an installation that add() never registered, such as one
    // for all users, that is all it does.
    void remove();

private:
    struct Record;

    Record readRecord() const;
    void writeRecord(const Record& record) const;
    void writeEntries(const std::map<std::filesystem::path, std::string>& wanted, Record& record);
    std::map<std::filesystem::path, std::string> entries() const;
    std::string startsHelper() const;
    void refreshCaches(Record& record);
    void runNoting(Record& record, const char* tool, const std::vector<std::string>& arguments,
                   const std::filesystem::path& within);
    void removeUnneededCaches(Record& record);
    void removeAssociations(std::string_view keptType);
    void removeStartsAtLogin();
    void attempt(const std::function<void()>& step);

    XDGFolders folders_;
    std::filesystem::path folder_;
    ProcessLauncher& launcher_;
    std::function<void(const std::string&)> report_;
};

} // namespace cadora
