#pragma once

#include "hosts/linux/files/XDGFolders.h"
#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"

#include <filesystem>
#include <string>

namespace cadora {

// The "Send to Cadora" entries of the user's file managers. They follow the switch that the services' entry
// has in the user defaults: there when it is on, gone when it is off or absent.
//
// What was written is recorded in the user defaults. An entry that is missing although it was written was
// deleted by the user and isn't written again; one that the user changed stays as it is. Both are forgotten
// when the switch is absent, so that enabling the service anew starts afresh. Where a file belongs to a file
// manager, its other bytes stay as they are, and a file that can't be understood is left alone. What fails is
// logged, and tried again at the next refresh.
class FileManagerEntries {
public:
    // `sender` is the absolute path of the program that the entries start with the selected files. The
    // defaults and the log must outlive the object.
    FileManagerEntries(XDGFolders folders, std::filesystem::path sender, UserDefaults& defaults,
                       SystemLog& systemLog);

    // Makes the entries match the switch. Reads and writes a handful of small files; main thread.
    void refresh();

private:
    struct Entry;
    struct Record;
    enum class Switch { absent, off, on };

    Switch readSwitch();
    Record readRecord();
    void writeRecord(const Record& record);
    std::vector<Entry> entries() const;
    void put(const Entry& entry, Record& record);
    void putFile(const Entry& entry, Record& record);
    void putThunarAction(const Entry& entry, Record& record);
    void takeAway(const Entry& entry, Record& record);
    void takeThunarActionAway(Record& record);
    void forgetWhatManagersKeep();
    void log(const std::string& problem);

    XDGFolders folders_;
    std::filesystem::path sender_;
    UserDefaults& defaults_;
    SystemLog& systemLog_;
};

} // namespace cadora
