#pragma once

#include "base/SerialQueue.h"
#include "outbox/OutboxSnapshot.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cadora {

// The persistent outbox: an index file that lists the items, and one folder per item with the copy of the
// sent file and, later, its transcoded audio. Nothing of the pipeline survives a restart but what is here.
//
// Each operation reads the index on the disk anew, and what is on the disk counts; but bytes that are the
// same as before are not decoded again.
//
// Reads and writes of the index never overlap, but upsert() and remove() are a read and a write with a gap
// between: safe because all callers are on the main thread. Staging copies the file on the calling thread.
class OutboxStore {
public:
    // The one store of the process, made on first use.
    static OutboxStore& shared();

    // Makes the outbox directory if need be. A system that knows no place for applications' data ends the
    // program; a directory that can't be made reads as an empty outbox.
    OutboxStore();

    const std::filesystem::path& root() const { return root_; }

    // All items in the order of the index; none when the index is missing or can't be read. Never throws.
    OutboxSnapshot load();

    // Replaces the item of the same shortID in its place, or appends. A write that fails is dropped with a
    // line in the log. An index that is there but can't be read is replaced by one that knows this item
    // alone, and kept beside it as "outbox.json.unread-1", "-2" and so on, with a line in the log; nothing
    // reads it again.
    void upsert(const OutboxItem& item);

    // Drops the item from the index, written as upsert() does, and deletes its folder with everything in it.
    // An identifier that is no name of a folder in `root` has none to delete.
    void remove(const std::string& shortID);

    // Why the index could not be written by the latest of these operations; absent when it was.
    const std::optional<std::string>& saveProblem() const { return saveProblem_; }

    // Copies the sent file into a folder of its own and records a new item in state `staged`. Throws the
    // file system's error when the file can't be copied: nothing is recorded then, and an empty folder stays.
    OutboxItem stage(const std::filesystem::path& sourceURL, const std::string& visibility);

    // Where the copy of the sent file is; absent when it or its folder is gone, or the item's identifier is
    // no name of a folder in `root`.
    std::optional<std::filesystem::path> sourceURL(const OutboxItem& item);

private:
    // An index as it was read or written last: bytes that are on the disk still need no other look at them.
    struct Index {
        std::string bytes;
        OutboxSnapshot items;
    };

    OutboxSnapshot read();
    void save(const OutboxSnapshot& items);
    void setIndexAside();
    std::filesystem::path indexPath() const;
    std::optional<std::filesystem::path> folderOf(const std::string& shortID) const;

    SerialQueue lock_{"com.norvelant.cadora.mac.outbox"};
    std::filesystem::path root_;
    std::optional<Index> lastRead_;
    std::optional<Index> lastEncoded_;
    // Of the index when it was last read or written, in bytes.
    std::size_t indexSize_ = 0;
    // Why the index, which is there, could not be read the last time.
    std::optional<std::string> unreadReason_;
    std::optional<std::string> saveProblem_;
};

} // namespace cadora
