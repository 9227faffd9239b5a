#include "outbox/OutboxStore.h"

#include "base/Error.h"
#include "fakes/Ending.h"
#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <fstream>
#include <functional>
#include <limits>
#include <new>
#include <set>

using namespace cadora;
using test::readFile;
using test::TestPlatform;
namespace fs = std::filesystem;

namespace {

OutboxItem item(const std::string& shortID) {
    OutboxItem result;
    result.shortID = shortID;
    result.sourceFilename = shortID + ".wav";
    result.createdAt = {1};
    return result;
}

std::vector<std::string> ids(OutboxStore& store) {
    std::vector<std::string> result;
    for (const OutboxItem& entry : store.load()) {
        result.push_back(entry.shortID);
    }
    return result;
}

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

// Some file systems have no names that are not UTF-8.
bool takesName(const test::TemporaryDirectory& folder, const std::string& name) {
    const fs::path probe = folder.path() / name;
    const bool made = std::ofstream(probe).is_open();
    std::error_code ignored;
    fs::remove(probe, ignored);
    return made;
}

using IDs = std::vector<std::string>;

[[noreturn]] void failOnce(std::function<void()>& hook, int code) {
    hook = [] {};
    throw PlatformError("test", code, "the disk is bad");
}

// An index of two items, the next reading of which fails.
struct UnreadableOnce {
    TestPlatform platform;
    OutboxStore store;
    std::string index;

    UnreadableOnce() {
        store.upsert(item("a"));
        store.upsert(item("b"));
        index = readFile(store.root() / "outbox.json");
        platform.fileManager.onRead = [this] { failOnce(platform.fileManager.onRead, 5); };
    }
};

} // namespace

TEST_CASE("at the first start there is no index, and the outbox directory is made") {
    TestPlatform platform;
    OutboxStore store;
    CHECK(store.load().empty());
    CHECK(store.root() == platform.home.path() / "data/Cadora/Outbox");
    CHECK(fs::is_directory(store.root()));
    CHECK(namesIn(store.root()).empty());
}

TEST_CASE("an empty index and a missing one behave alike") {
    TestPlatform platform;
    OutboxStore store;
    platform.home.file("data/Cadora/Outbox/outbox.json", "[]");
    CHECK(store.load().empty());
    store.upsert(item("a"));
    CHECK(ids(store) == IDs{"a"});
}

TEST_CASE("an index with one unknown state reads as empty, and the next staging leaves just the new item") {
    TestPlatform platform;
    OutboxStore store;
    store.upsert(item("old"));
    std::string index = readFile(store.root() / "outbox.json");
    index.replace(index.find("staged"), 6, "melted");
    platform.home.file("data/Cadora/Outbox/outbox.json", index);
    CHECK(store.load().empty());
    const OutboxItem staged = store.stage(platform.home.file("song.wav", "RIFF"), "private");
    CHECK(ids(store) == IDs{staged.shortID});
}

TEST_CASE("a known item is replaced in its place, an unknown one goes to the end") {
    TestPlatform platform;
    OutboxStore store;
    for (const char* id : {"a", "b", "c"}) {
        store.upsert(item(id));
    }
    OutboxItem changed = item("b");
    changed.attempts = 9;
    store.upsert(changed);
    CHECK(ids(store) == IDs{"a", "b", "c"});
    CHECK(store.load()[1].attempts == 9);
    store.upsert(item("B"));
    CHECK(ids(store) == IDs{"a", "b", "c", "B"});
}

TEST_CASE("removing an unknown identifier rewrites the index unchanged and succeeds") {
    TestPlatform platform;
    OutboxStore store;
    store.upsert(item("a"));
    const std::string before = readFile(store.root() / "outbox.json");
    store.remove("zzzzzzzz");
    CHECK(readFile(store.root() / "outbox.json") == before);
}

TEST_CASE("removing from an outbox without an index writes one") {
    TestPlatform platform;
    OutboxStore store;
    store.remove("zzzzzzzz");
    CHECK(readFile(store.root() / "outbox.json") == "[]");
}

TEST_CASE("removing an item deletes its folder with everything in it and leaves the others in order") {
    TestPlatform platform;
    OutboxStore store;
    const auto first = store.stage(platform.home.file("1.wav", "1"), "private");
    const auto second = store.stage(platform.home.file("2.wav", "2"), "private");
    const auto third = store.stage(platform.home.file("3.wav", "3"), "private");
    platform.home.file("data/Cadora/Outbox/" + second.shortID + "/recording.m4a", "m4a");
    store.remove(second.shortID);
    CHECK(ids(store) == IDs{first.shortID, third.shortID});
    CHECK_FALSE(fs::exists(store.root() / second.shortID));
    CHECK(fs::exists(store.root() / first.shortID));
}

TEST_CASE("removing an item whose folder is gone already succeeds") {
    TestPlatform platform;
    OutboxStore store;
    const auto staged = store.stage(platform.home.file("1.wav", "1"), "private");
    fs::remove_all(store.root() / staged.shortID);
    store.remove(staged.shortID);
    CHECK(store.load().empty());
}

TEST_CASE("staging copies the file under a fresh identifier, leaves it in place and records it") {
    TestPlatform platform;
    OutboxStore store;
    const auto source = platform.home.file("song.mp3", "the very bytes");
    const OutboxItem staged = store.stage(source, "subscribers");
    CHECK(staged.shortID.size() == 8);
    CHECK(staged.sourceFilename == "song.mp3");
    CHECK(staged.state == OutboxState::staged);
    CHECK(staged.attempts == 0);
    CHECK_FALSE(staged.lastError);
    CHECK_FALSE(staged.duration);
    CHECK(staged.createdAt == platform.clock.time);
    CHECK(staged.visibility == "subscribers");
    CHECK(readFile(store.root() / staged.shortID / "source.mp3") == "the very bytes");
    CHECK(readFile(source) == "the very bytes");
    CHECK(store.load() == std::vector<OutboxItem>{staged});
}

TEST_CASE("the copy keeps the extension's letter case, and is source.audio without one") {
    TestPlatform platform;
    OutboxStore store;
    const auto upper = store.stage(platform.home.file("Take 3.WAV", "x"), "private");
    CHECK(namesIn(store.root() / upper.shortID) == std::set<std::string>{"source.WAV"});
    const auto bare = store.stage(platform.home.file("demo", "x"), "private");
    CHECK(namesIn(store.root() / bare.shortID) == std::set<std::string>{"source.audio"});
    CHECK(bare.sourceFilename == "demo");
}

TEST_CASE("staging what doesn't exist throws, leaves the index unchanged and an empty folder behind") {
    TestPlatform platform;
    OutboxStore store;
    store.upsert(item("a"));
    CHECK_THROWS_AS(store.stage(platform.home.path() / "missing.wav", "private"), PlatformError);
    CHECK(ids(store) == IDs{"a"});
    const auto names = namesIn(store.root());
    REQUIRE(names.size() == 2);
    for (const std::string& name : names) {
        CHECK((name == "outbox.json" || fs::is_empty(store.root() / name)));
    }
}

TEST_CASE("a clash of identifiers shows only where the very same copy exists") {
    TestPlatform platform;
    OutboxStore store;
    platform.random.scripted = std::deque<std::uint64_t>(16, 1);
    const auto source = platform.home.file("song.wav", "x");
    CHECK(store.stage(source, "private").shortID == "aaaaaaaa");
    CHECK_THROWS_AS(store.stage(source, "private"), PlatformError);
    CHECK(readFile(store.root() / "aaaaaaaa/source.wav") == "x");
    CHECK(ids(store) == IDs{"aaaaaaaa"});
}

TEST_CASE("odd file names are staged like any other") {
    TestPlatform platform;
    OutboxStore store;
    const std::string longest = std::string(251, 'x') + ".wav";
    std::vector<std::pair<std::string, std::string>> table = {
        {"two\nlines.wav", "two\nlines.wav"},
        {"e\xCC\x81tude.wav", "e\xCC\x81tude.wav"},
        {longest, longest},
    };
    if (takesName(platform.home, "caf\xE9.wav")) {
        table.emplace_back("caf\xE9.wav", "caf\xEF\xBF\xBD.wav");
    } else {
        MESSAGE("this file system has no names that are not UTF-8");
    }
    for (const auto& [name, shown] : table) {
        CAPTURE(shown);
        const auto staged = store.stage(platform.home.file(name, name), "private");
        CHECK(staged.sourceFilename == shown);
        CHECK(readFile(store.root() / staged.shortID / "source.wav") == name);
    }
    CHECK(store.load().size() == table.size());
}

TEST_CASE("an extension too long for the copy's name does not keep the file from being staged") {
    TestPlatform platform;
    OutboxStore store;
    const std::string name = "a." + std::string(253, 'x');
    const auto staged = store.stage(platform.home.file(name, "x"), "private");
    CHECK(staged.sourceFilename == name);
    CHECK(namesIn(store.root() / staged.shortID) == std::set<std::string>{"source.audio"});
}

TEST_CASE("an extension that is not valid UTF-8 stays on the copy byte for byte") {
    TestPlatform platform;
    OutboxStore store;
    if (!takesName(platform.home, "song.w\xE4v")) {
        MESSAGE("skipped: this file system has no names that are not UTF-8");
        return;
    }
    const auto staged = store.stage(platform.home.file("song.w\xE4v", "x"), "private");
    CHECK(namesIn(store.root() / staged.shortID) == std::set<std::string>{"source.w\xE4v"});
    CHECK(store.sourceURL(staged) == store.root() / staged.shortID / "source.w\xE4v");
}

TEST_CASE("a folder is staged with all that is in it, a symbolic link as the file that it points to") {
    TestPlatform platform;
    OutboxStore store;
    platform.home.file("session.band/media/a.wav", "a");
    platform.home.file("session.band/b.wav", "b");
    const auto folder = store.stage(platform.home.path() / "session.band", "private");
    CHECK(readFile(store.root() / folder.shortID / "source.band/media/a.wav") == "a");
    CHECK(readFile(store.root() / folder.shortID / "source.band/b.wav") == "b");

    fs::create_symlink("session.band/b.wav", platform.home.path() / "link.aif");
    const auto link = store.stage(platform.home.path() / "link.aif", "private");
    CHECK(link.sourceFilename == "link.aif");
    const auto copy = store.root() / link.shortID / "source.aif";
    CHECK_FALSE(fs::is_symlink(copy));
    CHECK(readFile(copy) == "b");
}

TEST_CASE("the source of an item is the entry that begins with source., whatever lies beside it") {
    TestPlatform platform;
    OutboxStore store;
    platform.home.file("data/Cadora/Outbox/abc/recording.m4a", "m4a");
    platform.home.file("data/Cadora/Outbox/abc/source.wav", "wav");
    CHECK(store.sourceURL(item("abc")) == store.root() / "abc/source.wav");
    platform.home.file("data/Cadora/Outbox/def/recording.m4a", "m4a");
    platform.home.file("data/Cadora/Outbox/def/Source.wav", "wav");
    CHECK_FALSE(store.sourceURL(item("def")));
    CHECK_FALSE(store.sourceURL(item("without")));
}

TEST_CASE("an item that can't be encoded leaves the index as it was") {
    TestPlatform platform;
    OutboxStore store;
    store.upsert(item("a"));
    OutboxItem bad = item("b");
    bad.duration = std::numeric_limits<double>::quiet_NaN();
    store.upsert(bad);
    CHECK(ids(store) == IDs{"a"});
}

TEST_CASE("an outbox directory that can't be made reads as empty, and staging says why") {
    TestPlatform platform;
    platform.home.file("data/Cadora", "a file where the folder should be");
    OutboxStore store;
    CHECK(store.load().empty());
    store.upsert(item("a"));
    CHECK(store.load().empty());
    CHECK_THROWS_AS(store.stage(platform.home.file("song.wav", "x"), "private"), PlatformError);
}

TEST_CASE("the outbox survives a restart") {
    TestPlatform platform;
    OutboxItem staged;
    {
        OutboxStore store;
        staged = store.stage(platform.home.file("song.wav", "x"), "private");
    }
    OutboxStore store;
    CHECK(store.load() == std::vector<OutboxItem>{staged});
}

TEST_CASE("an index that can't be read is kept beside the one that replaces it, and the log says where") {
    UnreadableOnce outbox;
    auto& files = outbox.platform.fileManager;
    SUBCASE("under a second name") {}
    SUBCASE("as a copy where there are no second names") {
        files.knowsLinks = false;
    }
    outbox.store.upsert(item("c"));
    CHECK(ids(outbox.store) == IDs{"c"});
    CHECK(readFile(outbox.store.root() / "outbox.json.unread-1") == outbox.index);
    CHECK(outbox.platform.systemLog.lines ==
          std::vector<std::string>{"[Cadora Helper] the outbox’s list could not be read (the disk is bad) "
                                   "and is replaced; it is kept as " +
                                   (outbox.store.root() / "outbox.json.unread-1").string()});
    // The next start.
    OutboxStore next;
    files.onRead = [&] { failOnce(files.onRead, 5); };
    next.remove("c");
    CHECK(ids(next).empty());
    CHECK(fs::exists(outbox.store.root() / "outbox.json.unread-2"));
    CHECK(readFile(outbox.store.root() / "outbox.json.unread-1") == outbox.index);
}

TEST_CASE("an index that can't be decoded is kept beside the one that replaces it") {
    TestPlatform platform;
    OutboxStore store;
    platform.home.file("data/Cadora/Outbox/outbox.json", "[{\"shortID\":");
    store.upsert(item("a"));
    CHECK(ids(store) == IDs{"a"});
    CHECK(readFile(store.root() / "outbox.json.unread-1") == "[{\"shortID\":");
    CHECK(platform.systemLog.lines.size() == 1);
}

TEST_CASE("an index that can be neither read nor kept is replaced, and the log says that it is lost") {
    UnreadableOnce outbox;
    for (int number = 1; number <= 100; ++number) {
        outbox.platform.home.file("data/Cadora/Outbox/outbox.json.unread-" + std::to_string(number),
                                  "earlier");
    }
    outbox.store.upsert(item("c"));
    CHECK(ids(outbox.store) == IDs{"c"});
    CHECK(namesIn(outbox.store.root()).size() == 101);
    CHECK(outbox.platform.systemLog.lines ==
          std::vector<std::string>{
              "[Cadora Helper] the outbox’s list could not be read (the disk is bad) and is "
              "replaced; it is lost, for too many are kept already"});
}

TEST_CASE("an index that can be read again before it is replaced is not set aside") {
    UnreadableOnce outbox;
    CHECK(outbox.store.load().empty());
    outbox.store.upsert(item("c"));
    CHECK(ids(outbox.store) == IDs{"a", "b", "c"});
    CHECK(namesIn(outbox.store.root()) == std::set<std::string>{"outbox.json"});
    CHECK(outbox.platform.systemLog.lines.empty());
}

TEST_CASE("loading doesn't fail when the memory doesn't suffice for the index") {
    UnreadableOnce outbox;
    outbox.platform.fileManager.onRead = [] { throw std::bad_alloc(); };
    CHECK(outbox.store.load().empty());
    outbox.platform.fileManager.onRead = [] {};
    CHECK(ids(outbox.store) == IDs{"a", "b"});
}

TEST_CASE(
    "a write of the index that fails is told in one line of the log, and the next one that succeeds is not") {
    TestPlatform platform;
    OutboxStore store;
    store.upsert(item("a"));
    platform.fileManager.onWrite = [&] { failOnce(platform.fileManager.onWrite, 28); };
    const OutboxItem staged = store.stage(platform.home.file("song.wav", "x"), "private");
    CHECK(staged.sourceFilename == "song.wav");
    CHECK(ids(store) == IDs{"a"});
    CHECK(store.saveProblem() == "the disk is bad");
    const std::vector<std::string> told{"[Cadora Helper] the outbox’s list was not saved: the disk is bad"};
    CHECK(platform.systemLog.lines == told);
    store.upsert(staged);
    CHECK(ids(store) == IDs{"a", staged.shortID});
    CHECK_FALSE(store.saveProblem());
    CHECK(platform.systemLog.lines == told);
}

TEST_CASE("room for the index is kept before a file is copied, and more of it for a longer index") {
    TestPlatform platform;
    OutboxStore store;
    store.stage(platform.home.file("1.wav", "x"), "private");
    OutboxItem longer = item("a");
    longer.lastError = std::string(20000, 'e');
    store.upsert(longer);
    const auto index = readFile(store.root() / "outbox.json").size();
    CHECK_THROWS_AS(store.stage(platform.home.path() / "missing.wav", "private"), PlatformError);
    using Room = std::pair<fs::path, std::size_t>;
    CHECK(platform.fileManager.rooms == std::vector<Room>{{store.root(), 65536}, {store.root(), 4 * index}});
}

TEST_CASE("an identifier that is no name of a folder in the outbox has no source, and removing it deletes "
          "nothing") {
    TestPlatform platform;
    OutboxStore store;
    const auto outside = platform.home.file("precious/source.wav", "x");
    platform.home.file("data/Cadora/precious/source.wav", "x");
    platform.home.file("data/Cadora/Outbox/source.wav", "x");
    store.upsert(item("a"));
    for (const std::string& shortID :
         {outside.parent_path().string(), std::string("../precious"), std::string(), std::string("."),
          std::string(".."), std::string("a/../../precious"), std::string("a/"), std::string("outbox.json"),
          std::string("a\0b", 3)}) {
        CAPTURE(shortID);
        store.upsert(item(shortID));
        CHECK_FALSE(store.sourceURL(item(shortID)));
        store.remove(shortID);
        CHECK(ids(store) == IDs{"a"});
    }
    CHECK(readFile(outside) == "x");
    CHECK(fs::exists(platform.home.path() / "data/Cadora/precious/source.wav"));
    CHECK(fs::exists(store.root() / "source.wav"));
}

TEST_CASE("a system without a folder for applications' data ends the program") {
    TestPlatform platform;
    platform.fileManager.knowsApplicationSupport = false;
    CHECK(test::aborts([] { const OutboxStore store; }));
}

TEST_CASE("what only looks like the source is none: its name begins with source and a dot") {
    TestPlatform platform;
    OutboxStore store;
    platform.home.file("data/Cadora/Outbox/abc/source", "x");
    platform.home.file("data/Cadora/Outbox/abc/sourcewav", "x");
    platform.home.file("data/Cadora/Outbox/abc/my source.wav", "x");
    CHECK_FALSE(store.sourceURL(item("abc")));
    platform.home.file("data/Cadora/Outbox/abc/source.", "x");
    CHECK(store.sourceURL(item("abc")) == store.root() / "abc/source.");
}

TEST_CASE("the longest extension that fits into the copy's name is kept") {
    TestPlatform platform;
    OutboxStore store;
    const std::string extension(248, 'x');
    const auto longest = store.stage(platform.home.file("a." + extension, "x"), "private");
    CHECK(namesIn(store.root() / longest.shortID) == std::set<std::string>{"source." + extension});
    const auto tooLong = store.stage(platform.home.file("a." + extension + "x", "x"), "private");
    CHECK(namesIn(store.root() / tooLong.shortID) == std::set<std::string>{"source.audio"});
}
