#include "hosts/linux/file-managers/FileManagerEntries.h"

#include "app/ServicesActivation.h"
#include "base/Error.h"
#include "hosts/linux/file-managers/EntryTexts.h"
#include "hosts/linux/file-managers/ThunarActions.h"
#include "hosts/linux/files/DesktopQuoting.h"
#include "hosts/linux/files/TextTemplate.h"
#include "hosts/linux/files/UserFile.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

namespace cadora {

namespace {

namespace fs = std::filesystem;

constexpr const char* recordKey = "FileManagerEntries";

// The types of WAV, AIFF, MP3, M4A, AAC, CAF, AU and FLAC, by each name that a version of the shared database
// gives them: some file managers compare names without looking for aliases.
constexpr const char* audioTypes = "audio/x-wav;audio/wav;audio/vnd.wave;audio/x-aiff;audio/aiff;audio/"
                                   "x-aifc;audio/mpeg;audio/mp4;audio/x-m4a;"
                                   "audio/aac;audio/x-caf;audio/basic;audio/flac;audio/x-flac;";

// Has the form that Thunar gives its own, and no word to search for: Thunar also writes it into its list of
// keyboard shortcuts, and does so again whenever it ends.
constexpr const char* thunarUniqueID = "1763683200000000-1";
constexpr const char* dolphinAction = "sendToCadora";

constexpr const char* thunarAction = "thunar";

class NotAListOfActions : public Error {
public:
    std::string text() const override {
        return "“uca.xml” is not a list of Thunar’s actions, and was left alone";
    }
};

template <class T> const T* find(const PropertyDictionary& dictionary, const std::string& key) {
    const auto found = dictionary.find(key);
    return found == dictionary.end() ? nullptr : std::get_if<T>(&found->second);
}

std::map<std::string, std::string> texts(const PropertyDictionary* dictionary) {
    std::map<std::string, std::string> result;
    if (dictionary != nullptr) {
        for (const auto& [key, value] : *dictionary) {
            if (const auto* text = std::get_if<std::string>(&value)) {
                result.emplace(key, *text);
            }
        }
    }
    return result;
}

PropertyDictionary dictionary(const std::map<std::string, std::string>& texts) {
    PropertyDictionary result;
    for (const auto& [key, text] : texts) {
        result.emplace(key, text);
    }
    return result;
}

// The list of Thunar's actions has line breaks of its own.
std::string withoutLineBreak(std::string text) {
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

ThunarActions parsed(std::string list) {
    auto actions = ThunarActions::parse(std::move(list), thunarUniqueID);
    if (!actions) {
        throw NotAListOfActions();
    }
    return *std::move(actions);
}

enum class Step { leave, write };

// What to do about an entry, given what is there and what the record says was written.
Step nextStep(const std::optional<std::string>& present, const std::string* recorded,
              const std::string& wanted, std::string_view senderName) {
    if (recorded == nullptr) {
        // One that nobody recorded is ours only if it starts our sender.
        return !present || present->find(senderName) != std::string::npos ? Step::write : Step::leave;
    }
    return present && *present == *recorded && *present != wanted ? Step::write : Step::leave;
}

} // namespace

struct FileManagerEntries::Entry {
    std::string id;
    fs::path file;
    std::string text;
    user_file::Kind kind = user_file::Kind::data;
};

struct FileManagerEntries::Record {
    // What was written for each entry, by its id.
    std::map<std::string, std::string> entries;
    // What the user's list of Thunar's actions began as, when it was made here.
    std::optional<std::string> thunarBase;
    std::set<fs::path> folders;

    friend bool operator==(const Record&, const Record&) = default;
};

FileManagerEntries::FileManagerEntries(XDGFolders folders, fs::path sender, UserDefaults& defaults,
                                       SystemLog& systemLog)
    : folders_(std::move(folders)), sender_(std::move(sender)), defaults_(defaults), systemLog_(systemLog) {}

void FileManagerEntries::refresh() {
    if (defaults_.suite(ServicesActivation::suiteName) == nullptr) {
        return;
    }
    const Switch state = readSwitch();
    const Record before = readRecord();
    if (state == Switch::on && !canBeWrittenDown(sender_)) {
        log("the place of the sender has a name that their entries can't hold");
        return;
    }
    Record record = before;
    bool isComplete = true;
    for (const Entry& entry : entries()) {
        try {
            if (state == Switch::on) {
                put(entry, record);
            } else {
                takeAway(entry, record);
            }
        } catch (const Error& error) {
            isComplete = false;
            log(error.text());
        }
    }
    if (state == Switch::absent && record != Record{}) {
        forgetWhatManagersKeep();
    }
    if (state != Switch::on) {
        user_file::removeEmptyFolders(record.folders);
    }
    if (state == Switch::absent && isComplete) {
        record = {};
    }
    if (record != before) {
        writeRecord(record);
    }
}

FileManagerEntries::Switch FileManagerEntries::readSwitch() {
    const auto status = defaults_.suite(ServicesActivation::suiteName)->object(ServicesActivation::statusKey);
    const auto* entries = status ? std::get_if<PropertyDictionary>(&*status) : nullptr;
    if (entries == nullptr || !entries->contains(ServicesActivation::entryKey)) {
        return Switch::absent;
    }
    const auto* entry = find<PropertyDictionary>(*entries, ServicesActivation::entryKey);
    // There is one menu here, so that either of its names switches it off.
    for (const char* const menu : {"enabled_context_menu", "enabled_services_menu"}) {
        const auto* number = entry ? find<std::int64_t>(*entry, menu) : nullptr;
        const auto* flag = entry ? find<bool>(*entry, menu) : nullptr;
        if ((number != nullptr && *number == 0) || (flag != nullptr && !*flag)) {
            return Switch::off;
        }
    }
    return Switch::on;
}

FileManagerEntries::Record FileManagerEntries::readRecord() {
    const auto value = defaults_.object(recordKey);
    const auto* stored = value ? std::get_if<PropertyDictionary>(&*value) : nullptr;
    Record record;
    if (stored != nullptr) {
        record.entries = texts(find<PropertyDictionary>(*stored, "entries"));
        if (const auto* base = find<std::string>(*stored, "thunarBase")) {
            record.thunarBase = *base;
        }
        for (const auto& [folder, name] : texts(find<PropertyDictionary>(*stored, "folders"))) {
            record.folders.insert(folder);
        }
    }
    return record;
}

void FileManagerEntries::writeRecord(const Record& record) {
    if (record == Record{}) {
        defaults_.set(recordKey, std::nullopt);
        return;
    }
    PropertyDictionary stored{{"entries", dictionary(record.entries)}};
    if (record.thunarBase) {
        stored.emplace("thunarBase", *record.thunarBase);
    }
    PropertyDictionary folders;
    for (const fs::path& folder : record.folders) {
        folders.emplace(folder.string(), folder.filename().string());
    }
    stored.emplace("folders", std::move(folders));
    defaults_.set(recordKey, std::move(stored));
}

std::vector<FileManagerEntries::Entry> FileManagerEntries::entries() const {
    const auto text = [this](std::string_view entry) {
        return filledIn(entry, {{"sender", sender_.string()},
                                {"types", audioTypes},
                                {"action", dolphinAction},
                                {"id", thunarUniqueID}});
    };
    const fs::path& data = folders_.dataHome;
    std::vector<Entry> entries{
        {thunarAction, folders_.configHome / "Thunar/uca.xml",
         withoutLineBreak(text(entry_texts::thunarAction))},
        {"thunarSendTo", data / "Thunar/sendto/cadora-helper.desktop", text(entry_texts::thunarSendTo)},
        {"nemo", data / "nemo/actions/cadora-helper.nemo_action", text(entry_texts::nemoAction)},
        // Executable, or Dolphin doesn't trust it.
        {"dolphin", data / "kio/servicemenus/cadora-helper.desktop", text(entry_texts::dolphinServiceMenu),
         user_file::Kind::program},
        {"fileManagerActions", data / "file-manager/actions/cadora-helper.desktop",
         text(entry_texts::fileManagerAction)},
        {"nautilusScript", data / "nautilus/scripts/Send to Cadora", text(entry_texts::nautilusScript),
         user_file::Kind::program},
        {"cajaScript", folders_.configHome / "caja/scripts/Send to Cadora", text(entry_texts::nautilusScript),
         user_file::Kind::program},
        {"nautilusExtension", data / "nautilus-python/extensions/cadora_helper.py",
         text(entry_texts::nautilusExtension)},
    };
    return entries;
}

void FileManagerEntries::put(const Entry& entry, Record& record) {
    if (entry.id == thunarAction) {
        putThunarAction(entry, record);
    } else {
        putFile(entry, record);
    }
}

void FileManagerEntries::putFile(const Entry& entry, Record& record) {
    if (entry.id == "nautilusExtension") {
        const auto& dirs = folders_.dataDirs;
        const bool takesExtensions = std::any_of(dirs.begin(), dirs.end(), [](const fs::path& dir) {
            std::error_code error;
            return fs::is_directory(dir / "nautilus-python", error);
        });
        if (!takesExtensions) {
            return;
        }
    }
    const auto recorded = record.entries.find(entry.id);
    const std::string* const text = recorded == record.entries.end() ? nullptr : &recorded->second;
    if (nextStep(user_file::read(entry.file), text, entry.text, sender_.filename().native()) == Step::write) {
        user_file::write(entry.file, entry.text, entry.kind, record.folders);
        record.entries[entry.id] = entry.text;
    }
}

void FileManagerEntries::putThunarAction(const Entry& entry, Record& record) {
    std::optional<std::string> list = user_file::read(entry.file);
    const auto recorded = record.entries.find(entry.id);
    const bool isRecorded = recorded != record.entries.end();
    std::optional<std::string> base;
    if (!list && !isRecorded) {
        // The user's list takes the place of the system's. Without one there is no Thunar, and a list of the
        // user's would take the place of what comes with it.
        for (const fs::path& folder : folders_.configDirs) {
            base = base ? base : user_file::read(folder / "Thunar/uca.xml");
        }
        list = base;
    }
    if (!list) {
        return;
    }
    ThunarActions actions = parsed(*std::move(list));
    const std::string* const text = isRecorded ? &recorded->second : nullptr;
    if (nextStep(actions.action(), text, entry.text, {}) == Step::write) {
        actions.put(entry.text);
        user_file::write(entry.file, actions.text(), entry.kind, record.folders);
        record.entries[entry.id] = entry.text;
        record.thunarBase = base ? base : record.thunarBase;
    }
}

void FileManagerEntries::takeAway(const Entry& entry, Record& record) {
    if (!record.entries.contains(entry.id)) {
        return;
    }
    if (entry.id == thunarAction) {
        takeThunarActionAway(record);
    } else if (user_file::read(entry.file)) {
        user_file::remove(entry.file);
        record.entries.erase(entry.id);
    }
}

void FileManagerEntries::takeThunarActionAway(Record& record) {
    const fs::path file = folders_.configHome / "Thunar/uca.xml";
    std::optional<std::string> list = user_file::read(file);
    if (!list) {
        return;
    }
    ThunarActions actions = parsed(*std::move(list));
    if (actions.action()) {
        actions.remove();
        if (actions.text() == record.thunarBase) {
            user_file::remove(file);
        } else {
            user_file::write(file, actions.text(), user_file::Kind::data, record.folders);
        }
        record.thunarBase.reset();
        record.entries.erase(thunarAction);
    }
}

// What the file managers themselves wrote about the entries.
void FileManagerEntries::forgetWhatManagersKeep() {
    try {
        const fs::path extensions = folders_.dataHome / "nautilus-python/extensions";
        const fs::path compiled = extensions / "__pycache__";
        std::error_code error;
        for (const auto& file : fs::directory_iterator(compiled, error)) {
            if (file.path().filename().native().starts_with("cadora_helper.")) {
                user_file::remove(file.path());
            }
        }
        fs::remove(compiled, error); // only when it is empty

        std::set<fs::path> none;
        const fs::path dolphin = folders_.configHome / "kservicemenurc";
        if (const auto text = user_file::read(dolphin)) {
            const std::string kept = withoutLines(*text, std::string(dolphinAction) + "=", "[Show]");
            if (kept != *text) {
                user_file::write(dolphin, kept, user_file::Kind::data, none);
            }
        }
    } catch (const Error& error) {
        log(error.text());
    }
}

void FileManagerEntries::log(const std::string& problem) {
    systemLog_.log("[Cadora Helper] file managers: " + problem);
}

} // namespace cadora
