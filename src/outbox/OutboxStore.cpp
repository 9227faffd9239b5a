#include "outbox/OutboxStore.h"

#include "base/Error.h"
#include "base/PathRules.h"
#include "base/UTF8.h"
#include "outbox/ShortID.h"
#include "platform/Platform.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace cadora {

namespace {

constexpr const char* indexName = "outbox.json";
constexpr std::string_view sourcePrefix = "source.";
constexpr std::size_t longestFileName = 255;

// Room for the index beside itself while it is replaced, and for what is added to it until then.
constexpr std::size_t leastRoom = 65536;
constexpr std::size_t roomPerByte = 4;

// More than one of these means that the disk is failing.
constexpr int mostIndexesSetAside = 100;

// The name of the staged copy. An extension so long that the name would not fit on any file system is taken
// for part of the title, as if there were none.
std::string stagedName(const std::string& filename) {
    const std::string extension = pathExtension(filename);
    const bool usable = !extension.empty() && sourcePrefix.size() + extension.size() <= longestFileName;
    return std::string(sourcePrefix) + (usable ? extension : "audio");
}

void log(const std::string& line) {
    Platform::current().systemLog.log("[Cadora Helper] " + line);
}

// A second name for a file that may be unreadable, or a copy where there are no second names.
void keepUnderSecondName(const std::filesystem::path& file, const std::filesystem::path& name) {
    FileManager& files = Platform::current().fileManager;
    try {
        files.linkItem(file, name);
    } catch (const Error&) {
        files.copyItem(file, name);
    }
}

} // namespace

OutboxStore& OutboxStore::shared() {
    static OutboxStore store;
    return store;
}

OutboxStore::OutboxStore() {
    FileManager& files = Platform::current().fileManager;
    const auto support = files.applicationSupportDirectory();
    if (!support) {
        std::fputs("[Cadora Helper] this system has no folder for applications’ data\n", stderr);
        std::abort();
    }
    root_ = *support / "Cadora" / "Outbox";
    try {
        files.createDirectory(root_);
    } catch (const Error&) {
        // Reads give an empty outbox from now on, and staging reports the reason to its caller.
    }
}

OutboxSnapshot OutboxStore::load() {
    return lock_.sync([this] { return read(); });
}

OutboxSnapshot OutboxStore::read() {
    unreadReason_.reset();
    FileManager& files = Platform::current().fileManager;
    if (lastRead_ && files.holds(indexPath(), lastRead_->bytes)) {
        return lastRead_->items;
    }
    lastRead_.reset();
    try {
        std::string bytes = files.contents(indexPath());
        OutboxSnapshot items(decodeOutbox(bytes));
        indexSize_ = bytes.size();
        lastRead_ = {std::move(bytes), items};
        return items;
    } catch (const std::exception&) {
        // Also when there is not enough memory for what the file holds.
        if (files.fileExists(indexPath())) {
            unreadReason_ = errorText(std::current_exception());
        }
        return {};
    }
}

void OutboxStore::save(const OutboxSnapshot& items) {
    lock_.sync([&] {
        saveProblem_.reset();
        FileManager& files = Platform::current().fileManager;
        try {
            if (!lastEncoded_ || !lastEncoded_->items.isSameAs(items)) {
                lastEncoded_ = {encodeOutbox(items.items()), items};
            }
            if (unreadReason_) {
                setIndexAside();
            }
            files.writeAtomically(indexPath(), lastEncoded_->bytes);
            indexSize_ = lastEncoded_->bytes.size();
            unreadReason_.reset();
        } catch (const std::exception&) {
            // The index keeps its previous content.
            saveProblem_ = errorText(std::current_exception());
            log("the outbox’s list was not saved: " + *saveProblem_);
        }
    });
}

std::filesystem::path OutboxStore::indexPath() const {
    return root_ / indexName;
}

// What could not be read a moment ago may be whole, and is about to be replaced.
void OutboxStore::setIndexAside() {
    FileManager& files = Platform::current().fileManager;
    const std::string problem =
        "the outbox’s list could not be read (" + *unreadReason_ + ") and is replaced; ";
    try {
        for (int number = 1; number <= mostIndexesSetAside; ++number) {
            const auto name = root_ / (std::string(indexName) + ".unread-" + std::to_string(number));
            if (!files.fileExists(name)) {
                keepUnderSecondName(indexPath(), name);
                log(problem + "it is kept as " + repairedUTF8(name.native()));
                return;
            }
        }
        log(problem + "it is lost, for too many are kept already");
    } catch (const Error& error) {
        log(problem + "it is lost: " + error.text());
    }
}

void OutboxStore::upsert(const OutboxItem& item) {
    const OutboxSnapshot known = load();
    const auto& items = known.items();
    const auto found = std::find_if(items.begin(), items.end(),
                                    [&](const OutboxItem& entry) { return entry.shortID == item.shortID; });
    if (found != items.end() && *found == item) {
        save(known);
        return;
    }
    std::vector<OutboxItem> changed = items;
    if (found == items.end()) {
        changed.push_back(item);
    } else {
        changed[static_cast<std::size_t>(found - items.begin())] = item;
    }
    save(OutboxSnapshot(std::move(changed)));
}

void OutboxStore::remove(const std::string& shortID) {
    const OutboxSnapshot known = load();
    const auto isMeant = [&](const OutboxItem& item) { return item.shortID == shortID; };
    if (std::any_of(known.items().begin(), known.items().end(), isMeant)) {
        std::vector<OutboxItem> rest = known.items();
        std::erase_if(rest, isMeant);
        save(OutboxSnapshot(std::move(rest)));
    } else {
        save(known);
    }
    const auto folder = folderOf(shortID);
    if (!folder) {
        return;
    }
    try {
        Platform::current().fileManager.removeItem(*folder);
    } catch (const Error&) {
        // Gone already, or left for the uninstaller, which removes the whole outbox.
    }
}

OutboxItem OutboxStore::stage(const std::filesystem::path& sourceURL, const std::string& visibility) {
    const Platform& platform = Platform::current();
    const std::string filename = lastPathComponent(sourceURL.native());
    OutboxItem item;
    item.shortID = ShortID::generate();
    const auto folder = root_ / item.shortID;
    platform.fileManager.createDirectory(folder);
    platform.fileManager.keepRoom(root_, std::max(leastRoom, roomPerByte * indexSize_));
    platform.fileManager.copyItem(sourceURL, folder / stagedName(filename));
    item.sourceFilename = repairedUTF8(filename);
    item.createdAt = platform.clock.now();
    item.visibility = visibility;
    upsert(item);
    return item;
}

std::optional<std::filesystem::path> OutboxStore::sourceURL(const OutboxItem& item) {
    const auto folder = folderOf(item.shortID);
    if (!folder) {
        return std::nullopt;
    }
    try {
        for (const auto& name : Platform::current().fileManager.contentsOfDirectory(*folder)) {
            if (name.native().compare(0, sourcePrefix.size(), sourcePrefix) == 0) {
                return *folder / name;
            }
        }
    } catch (const Error&) {
        // A folder that can't be listed holds no source.
    }
    return std::nullopt;
}

// An index that was damaged or edited may hold anything for an identifier: what is empty, has parts or names
// the index itself would lead to what is none of the store's.
std::optional<std::filesystem::path> OutboxStore::folderOf(const std::string& shortID) const {
    constexpr std::string_view excluded("./\0", 3);
    if (shortID.empty() || shortID.find_first_of(excluded) != std::string::npos) {
        return std::nullopt;
    }
    return root_ / shortID;
}

} // namespace cadora
