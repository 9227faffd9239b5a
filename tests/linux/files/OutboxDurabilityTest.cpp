// What is left of the outbox when the program is killed, or the power fails, at any instant.

#include "outbox/OutboxStore.h"

#include "SkippedTest.h"
#include "base/Error.h"
#include "fakes/TestPlatform.h"
#include "linux/system/TracedChild.h"

#include <doctest/doctest.h>

#include <sys/mount.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>

using namespace cadora;
using test::Next;
using test::readFile;
using test::runTraced;
using test::SystemCall;
using test::TemporaryDirectory;
using test::TestPlatform;
namespace fs = std::filesystem;

namespace {

const std::string sound(100000, 's');

// An outbox with one item in it, and what is about to happen to it. Each is like the other, to the byte.
struct Scene {
    TestPlatform platform;
    OutboxStore store;
    OutboxItem item = store.stage(platform.home.file("first.wav", sound), "private");
    fs::path sent = platform.home.file("second.wav", sound);

    std::string index() const { return readFile(store.root() / "outbox.json"); }

    void stage() { store.stage(sent, "private"); }
    void update() {
        item.state = OutboxState::transcoded;
        store.upsert(item);
    }
    void remove() { store.remove(item.shortID); }
};

using Operation = void (Scene::*)();

// The index is one of the two, and each item that it lists has its sound.
void requireWhole(const fs::path& root, const std::string& before, const std::string& after) {
    const std::string index = readFile(root / "outbox.json");
    REQUIRE((index == before || index == after));
    for (const OutboxItem& item : decodeOutbox(index)) {
        REQUIRE(readFile(root / item.shortID / "source.wav") == sound);
    }
}

std::string indexAfter(Operation operation) {
    Scene scene;
    (scene.*operation)();
    return scene.index();
}

// Kills the operation before its first system call, then before its second, and so on to its end.
int checkKilledEverywhere(Operation operation) {
    const std::string after = indexAfter(operation);
    for (int count = 1;; ++count) {
        Scene scene;
        const std::string before = scene.index();
        REQUIRE(before != after);
        int left = count;
        const bool ended =
            runTraced([&] { (scene.*operation)(); },
                      [&](const SystemCall&) { return --left == 0 ? Next::kill : Next::proceed; });
        CAPTURE(count);
        requireWhole(scene.store.root(), before, after);
        if (ended) {
            CHECK(scene.index() == after);
            return count;
        }
        // Life goes on: a new process finds the store usable, and cleans up behind the killed one.
        PosixFileManager fresh(scene.platform.home.path() / "data");
        fresh.writeAtomically(scene.store.root() / "outbox.json", before);
        for (const fs::path& name : fresh.contentsOfDirectory(scene.store.root())) {
            REQUIRE_FALSE(name.native().starts_with('.'));
        }
    }
}

// A disk of its own, as it would be found if the power failed now. Only root can have one.
class Disk {
public:
    explicit Disk(const fs::path& folder) : image_(folder / "image"), mountPoint_(folder / "disk") {
        fs::create_directory(mountPoint_);
        std::ofstream(image_).close();
        fs::resize_file(image_, 12U << 20U);
        const std::string make = "mke2fs -q -F -t ext4 -J size=4 '" + image_.string() + "' >/dev/null 2>&1";
        isMounted_ = std::system(make.c_str()) == 0 && mount(image_);
    }
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;
    ~Disk() { unmount(); }

    bool isMounted() const { return isMounted_; }
    const fs::path& mountPoint() const { return mountPoint_; }

    // What has reached the disk so far, as an image of its own; none when that is what it was last time.
    void snapshot() {
        std::string content = readFile(image_);
        if (snapshots_.empty() || content != last_) {
            snapshots_.push_back(image_.string() + std::to_string(snapshots_.size()));
            std::ofstream(snapshots_.back(), std::ios::binary) << content;
            last_ = std::move(content);
        }
    }
    const std::vector<fs::path>& snapshots() const { return snapshots_; }

    bool replaceBy(const fs::path& image) {
        unmount();
        isMounted_ = mount(image);
        return isMounted_;
    }

private:
    bool mount(const fs::path& image) const {
        const std::string command =
            "mount -o loop '" + image.string() + "' '" + mountPoint_.string() + "' >/dev/null 2>&1";
        return std::system(command.c_str()) == 0;
    }
    void unmount() {
        if (isMounted_) {
            ::umount2(mountPoint_.c_str(), MNT_DETACH);
        }
        isMounted_ = false;
    }

    fs::path image_;
    fs::path mountPoint_;
    bool isMounted_ = false;
    std::vector<fs::path> snapshots_;
    std::string last_;
};

// Where temporary directories are made for as long as it lives: a disk of half a megabyte. Only root can have
// one.
class SmallDisk {
public:
    SmallDisk() {
        if (const char* const name = std::getenv("TMPDIR")) {
            usual_ = name;
        }
        isMounted_ = ::mount("none", place_.path().c_str(), "tmpfs", 0, "size=512k") == 0;
        ::setenv("TMPDIR", place_.path().c_str(), 1);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() {
        usual_ ? ::setenv("TMPDIR", usual_->c_str(), 1) : ::unsetenv("TMPDIR");
        if (isMounted_) {
            ::umount2(place_.path().c_str(), MNT_DETACH);
        }
    }

    bool isMounted() const { return isMounted_; }

    // Leaves this much room, and no more.
    void fillUpTo(std::size_t left) const {
        std::ofstream(place_.path() / "filler")
            << std::string(fs::space(place_.path()).available - left, 'f');
    }

private:
    TemporaryDirectory place_;
    std::optional<std::string> usual_;
    bool isMounted_ = false;
};

} // namespace

TEST_CASE(
    "staging syncs the copy and its folder before the index names it, and the index before it replaces") {
    Scene scene;
    const std::string root = scene.store.root();
    std::vector<std::string> changes;
    REQUIRE(runTraced([&] { scene.stage(); },
                      [&](const SystemCall& call) {
                          if (const auto change = call.changeBelow(root)) {
                              changes.push_back(*change);
                          }
                          return Next::proceed;
                      }));
    changes.erase(std::unique(changes.begin(), changes.end()), changes.end());
    const std::string id = scene.store.load().back().shortID;
    CHECK(changes == std::vector<std::string>{
                         "make " + id,
                         "sync .",
                         "make " + id + "/source.wav",
                         "fill " + id + "/source.wav",
                         "sync " + id + "/source.wav",
                         "sync " + id,
                         "make TEMPORARY",
                         "fill TEMPORARY",
                         "sync TEMPORARY",
                         "rename TEMPORARY to outbox.json",
                         "sync .",
                     });
}

TEST_CASE("a new outbox's folders are synced into those above them, one after the other") {
    TestPlatform platform;
    const std::string root = platform.home.path();
    std::vector<std::string> changes;
    REQUIRE(runTraced([] { OutboxStore(); },
                      [&](const SystemCall& call) {
                          if (const auto change = call.changeBelow(root)) {
                              changes.push_back(*change);
                          }
                          return Next::proceed;
                      }));
    // The first attempts find that what is above is missing.
    const std::vector<std::string> attempts = {"make data/Cadora/Outbox", "make data/Cadora"};
    REQUIRE(changes.size() > attempts.size());
    CHECK(std::equal(attempts.begin(), attempts.end(), changes.begin()));
    changes.erase(changes.begin(), changes.begin() + 2);
    CHECK(changes == std::vector<std::string>{"make data", "sync .", "make data/Cadora", "sync data",
                                              "make data/Cadora/Outbox", "sync data/Cadora"});
}

TEST_CASE("staging may be killed before any of its system calls") {
    CHECK(checkKilledEverywhere(&Scene::stage) > 20);
}

TEST_CASE("an update of the index may be killed before any of its system calls") {
    CHECK(checkKilledEverywhere(&Scene::update) > 10);
}

TEST_CASE("removing an item may be killed before any of its system calls") {
    CHECK(checkKilledEverywhere(&Scene::remove) > 10);
}

TEST_CASE("the power may fail before any system call of staging, and what has been staged survives") {
    const TemporaryDirectory directory;
    Disk disk(directory.path());
    if (!disk.isMounted()) {
        cadora::test::skipTest("mounting a disk image takes root and a loop device");
        return;
    }
    const char* const name = std::getenv("TMPDIR");
    const std::optional<std::string> usual =
        name != nullptr ? std::optional<std::string>(name) : std::nullopt;
    ::setenv("TMPDIR", disk.mountPoint().c_str(), 1);
    std::string before;
    std::string after;
    fs::path root;
    {
        Scene scene;
        usual ? ::setenv("TMPDIR", usual->c_str(), 1) : ::unsetenv("TMPDIR");
        before = scene.index();
        root = scene.store.root();
        const bool ended = runTraced([&] { scene.stage(); },
                                     [&](const SystemCall&) {
                                         disk.snapshot();
                                         return Next::proceed;
                                     });
        disk.snapshot();
        REQUIRE(ended);
        after = scene.index();
    }
    CHECK(disk.snapshots().size() > 4);
    for (const fs::path& snapshot : disk.snapshots()) {
        CAPTURE(snapshot);
        REQUIRE(disk.replaceBy(snapshot));
        requireWhole(root, before, after);
    }
    CHECK(readFile(root / "outbox.json") == after);
}

TEST_CASE("a recording that takes the last of the disk is in the outbox, and one that is removed there goes "
          "for good") {
    const SmallDisk disk;
    if (!disk.isMounted()) {
        cadora::test::skipTest("mounting a file system takes root");
        return;
    }
    Scene scene;
    disk.fillUpTo((sound.size() + 4095) / 4096 * 4096);
    const OutboxItem last = scene.store.stage(scene.sent, "private");
    CHECK(scene.store.load() == std::vector<OutboxItem>{scene.item, last});
    disk.fillUpTo(0);
    scene.store.remove(scene.item.shortID);
    CHECK(scene.store.load() == std::vector<OutboxItem>{last});
    CHECK(scene.platform.systemLog.lines.empty());
}
