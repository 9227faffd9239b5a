#pragma once

#include "platform/FileManager.h"
#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"

#include <filesystem>
#include <mutex>

namespace cadora {

// One domain of user defaults, kept as one JSON object in a small file. Every call reads the file anew, so
// that a change made by hand counts at once. No other program keeps defaults in this form, so a suite of any
// name is this same domain.
//
// A file that is missing or can't be understood reads as empty. The next write keeps what could not be
// understood beside the file, as "NAME.damaged-1", "-2" and so on. A write that fails, or can't keep that, is
// dropped with a line in the log.
// Values of the file that no PropertyValue can hold read as absent and are kept.
class FileUserDefaults : public UserDefaults {
public:
    // The file's folder is made when something is first written. `fileManager` and `systemLog` must outlive
    // this object.
    FileUserDefaults(FileManager& fileManager, std::filesystem::path file, SystemLog& systemLog);

    std::optional<PropertyValue> object(const std::string& key) override;
    void set(const std::string& key, std::optional<PropertyValue> value) override;
    UserDefaults* suite(const std::string&) override { return this; }

private:
    void setOrThrow(const std::string& key, const std::optional<PropertyValue>& value);
    void keepDamagedFile();

    FileManager& fileManager_;
    std::filesystem::path file_;
    SystemLog& systemLog_;
    std::mutex mutex_;
};

} // namespace cadora
