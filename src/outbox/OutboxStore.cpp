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

// The name of the staged copy. An extension so long that the name would not fit on any file system is taken
// for part of the title, as if there were none.
std::string stagedName(const std::string& filename) {
    const std::string extension = pathExtension(filename);
    const bool usable = !extension.empty() && sourcePrefix.size() + extension.size() <= longestFileName;
    return std::string(sourcePrefix) + (usable ? extension : "audio");
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
    FileManager& files = Platform::current().fileManager;
    if (lastRead_ && files.holds(indexPath(), lastRead_->bytes)) {
        return lastRead_->items;
    }
    lastRead_.reset();
    try {
        std::string bytes = files.contents(indexPath());
        OutboxSnapshot items(decodeOutbox(bytes));
        lastRead_ = {std::move(bytes), items};
        return items;
    } catch (const Error&) {
        return {};
    }
}

void OutboxStore::save(const OutboxSnapshot& items) {
    lock_.sync([&] {
        try {
            if (!lastEncoded_ || !lastEncoded_->items.isSameAs(items)) {
                lastEncoded_ = {encodeOutbox(items.items()), items};
            }
            Platform::current().fileManager.writeAtomically(indexPath(), lastEncoded_->bytes);
        } catch (const Error&) {
            // The index keeps its previous content.
        }
    });
}

std::filesystem::path OutboxStore::indexPath() const {
    return root_ / indexName;
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
    try {
        Platform::current().fileManager.removeItem(root_ / shortID);
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
    platform.fileManager.copyItem(sourceURL, folder / stagedName(filename));
    item.sourceFilename = repairedUTF8(filename);
    item.createdAt = platform.clock.now();
    item.visibility = visibility;
    upsert(item);
    return item;
}

std::optional<std::filesystem::path> OutboxStore::sourceURL(const OutboxItem& item) {
    const auto folder = root_ / item.shortID;
    try {
        for (const auto& name : Platform::current().fileManager.contentsOfDirectory(folder)) {
            if (name.native().compare(0, sourcePrefix.size(), sourcePrefix) == 0) {
                return folder / name;
            }
        }
    } catch (const Error&) {
        // A folder that can't be listed holds no source.
    }
    return std::nullopt;
}

} // namespace cadora
