#include "hosts/linux/files/PosixFileManager.h"

#include "SkippedTest.h"
#include "base/Error.h"
#include "contract/FileManagerUnderTest.h"
#include "fakes/TemporaryDirectory.h"

#include <doctest/doctest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <functional>
#include <optional>

using cadora::PlatformError;
using cadora::PosixFileManager;
using cadora::test::readFile;
using cadora::test::TemporaryDirectory;
namespace fs = std::filesystem;

std::unique_ptr<cadora::FileManager> cadora::test::makeFileManager() {
    return std::make_unique<PosixFileManager>(std::nullopt);
}

namespace {

std::optional<PlatformError> failureOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const PlatformError& error) {
        return error;
    }
    return std::nullopt;
}

// The text of a failure; also says when there is none.
std::string textOf(const std::function<void()>& operation) {
    const auto error = failureOf(operation);
    return error ? error->text() : "no failure";
}

unsigned permissions(const fs::path& path) {
    return static_cast<unsigned>(fs::status(path).permissions());
}

std::vector<fs::path> names(const fs::path& folder) {
    return PosixFileManager(std::nullopt).contentsOfDirectory(folder);
}

// An environment variable for as long as this lives.
class Environment {
public:
    Environment(const char* name, const char* value) : name_(name) {
        if (const char* const before = std::getenv(name)) {
            before_ = before;
        }
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment() {
        if (before_) {
            ::setenv(name_, before_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }

private:
    const char* name_;
    std::optional<std::string> before_;
};

// A temporary directory in memory, apart from where the others are.
class OtherFileSystem {
public:
    const fs::path& path() const { return directory_.path(); }
    fs::path file(const std::string& name, const std::string& content) const {
        return directory_.file(name, content);
    }

private:
    Environment place_{"TMPDIR", "/dev/shm"};
    TemporaryDirectory directory_;
};

// Files can't grow beyond `bytes` for as long as this lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

private:
    void (*handler_)(int);
    rlimit before_{};
};

// Goes away with this.
class MountedFileSystem {
public:
    explicit MountedFileSystem(fs::path folder) : folder_(std::move(folder)) {}
    MountedFileSystem(const MountedFileSystem&) = delete;
    MountedFileSystem& operator=(const MountedFileSystem&) = delete;
    ~MountedFileSystem() { ::umount2(folder_.c_str(), MNT_DETACH); }

private:
    fs::path folder_;
};

// A file system of its own with room for little, mounted over `folder`. Only root can have one.
class SmallFileSystem {
public:
    SmallFileSystem(const fs::path& folder, const char* options) {
        if (::mount("none", folder.c_str(), "tmpfs", 0, options) == 0) {
            mounted_.emplace(folder);
        }
    }

    bool isMounted() const { return mounted_.has_value(); }

private:
    std::optional<MountedFileSystem> mounted_;
};

// Leaves no descriptor to anybody else for as long as it lives.
class AllDescriptors {
public:
    AllDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit few{200, before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &few);
        for (int file = 0; (file = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
            files_.emplace_back(file);
        }
    }
    AllDescriptors(const AllDescriptors&) = delete;
    AllDescriptors& operator=(const AllDescriptors&) = delete;
    ~AllDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
    std::vector<cadora::FileDescriptor> files_;
};

// Fills the file system that holds `file`, to the last block.
void fillDisk(const fs::path& file) {
    const cadora::FileDescriptor filler(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string block(4096, 'f');
    while (::write(filler.get(), block.data(), block.size()) > 0) {
    }
}

} // namespace

TEST_CASE("application support is XDG_DATA_HOME where that is an absolute path") {
    const Environment home("HOME", "/home/someone");
    const Environment data("XDG_DATA_HOME", "/data/someone");
    CHECK(PosixFileManager().applicationSupportDirectory() == "/data/someone");
}

TEST_CASE("application support is .local/share of the home folder otherwise") {
    const Environment home("HOME", "/home/someone");
    for (const char* const value : {static_cast<const char*>(nullptr), "", "relative/data"}) {
        const Environment data("XDG_DATA_HOME", value);
        CHECK(PosixFileManager().applicationSupportDirectory() == "/home/someone/.local/share");
    }
}

TEST_CASE("the home folder is the user database's where HOME is of no use") {
    const Environment data("XDG_DATA_HOME", nullptr);
    const fs::path known = *PosixFileManager().applicationSupportDirectory();
    for (const char* const value : {static_cast<const char*>(nullptr), "", "relative"}) {
        const Environment home("HOME", value);
        const auto directory = PosixFileManager().applicationSupportDirectory();
        REQUIRE(directory);
        CHECK(directory->is_absolute());
        CHECK(directory->native().ends_with("/.local/share"));
    }
    CHECK(known.is_absolute());
}

TEST_CASE("application support can be given") {
    CHECK(PosixFileManager(fs::path("/given")).applicationSupportDirectory() == "/given");
    CHECK_FALSE(PosixFileManager(std::nullopt).applicationSupportDirectory());
}

TEST_CASE("what is created belongs to the user alone, whatever the source's mode was") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    fs::permissions(directory.file("project/script", "sound"), fs::perms(0777));
    fs::permissions(directory.path() / "project", fs::perms(0755));
    const mode_t mask = ::umask(0);
    files.createDirectory(directory.path() / "new/inner");
    files.copyItem(directory.path() / "project", directory.path() / "copy");
    files.writeAtomically(directory.path() / "index", "text");
    ::umask(mask);
    CHECK(permissions(directory.path() / "new") == 0700U);
    CHECK(permissions(directory.path() / "new/inner") == 0700U);
    CHECK(permissions(directory.path() / "copy") == 0700U);
    CHECK(permissions(directory.path() / "copy/script") == 0600U);
    CHECK(permissions(directory.path() / "index") == 0600U);
}

TEST_CASE("what is neither a file nor a folder is refused at once") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    REQUIRE(::mkfifo((directory.path() / "pipe").c_str(), 0600) == 0);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = directory.path() / "socket";
    REQUIRE(socketPath.size() < sizeof address.sun_path);
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size());
    REQUIRE(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    fs::create_symlink("/dev/zero", directory.path() / "zero");
    for (const char* const name : {"pipe", "socket", "zero"}) {
        const auto error =
            failureOf([&] { files.copyItem(directory.path() / name, directory.path() / "copy"); });
        REQUIRE(error);
        CHECK(error->domain() == "POSIX");
        CHECK(error->code() == ENOTSUP);
        CHECK(error->text() ==
              "“" + std::string(name) + "” couldn’t be copied: it is neither a file nor a folder");
        CHECK_FALSE(fs::exists(directory.path() / "copy"));
    }
    CHECK(textOf([&] { files.contents(directory.path() / "pipe"); }) ==
          "“pipe” couldn’t be read: it is not a file");
    ::close(socket);
}

TEST_CASE("a folder that holds something else is refused whole, by that thing's name") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    directory.file("project/take 1", "one");
    directory.file("project/inner/take 2", "two");
    REQUIRE(::mkfifo((directory.path() / "project/inner/pipe").c_str(), 0600) == 0);
    CHECK(textOf([&] { files.copyItem(directory.path() / "project", directory.path() / "copy"); }) ==
          "“pipe” couldn’t be copied: it is neither a file nor a folder");
    CHECK_FALSE(fs::exists(directory.path() / "copy"));
}

TEST_CASE("a link that leads round in a circle is refused") {
    const TemporaryDirectory directory;
    fs::create_symlink("b", directory.path() / "a");
    fs::create_symlink("a", directory.path() / "b");
    const auto error = failureOf(
        [&] { PosixFileManager(std::nullopt).copyItem(directory.path() / "a", directory.path() / "copy"); });
    REQUIRE(error);
    CHECK(error->code() == ELOOP);
}

TEST_CASE("names that are not UTF-8 work, and are shown with U+FFFD") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    const std::string name = "take \xFF\xFE\xE2\x82.wav";
    directory.file(name, "sound");
    files.copyItem(directory.path() / name, directory.path() / "copy\x80");
    CHECK(files.contents(directory.path() / "copy\x80") == "sound");
    files.writeAtomically(directory.path() / name, "new");
    CHECK(files.contents(directory.path() / name) == "new");
    files.removeItem(directory.path() / name);
    CHECK(textOf([&] { files.copyItem(directory.path() / name, directory.path() / "copy"); }) ==
          "“take \uFFFD\uFFFD\uFFFD.wav” couldn’t be copied: No such file or directory");
}

TEST_CASE("a temporary's name fits where the file's does, and is not cut inside a character") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    std::string name;
    for (int i = 0; i < 85; ++i) {
        name += "\u266B"; // three bytes each
    }
    files.writeAtomically(directory.path() / name, "text");
    CHECK(files.contents(directory.path() / name) == "text");
    CHECK(names(directory.path()).size() == 1);
}

TEST_CASE("a path with a NUL byte in it is not taken for what stands before") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    directory.file("song", "sound");
    const fs::path path = directory.path() / std::string("song\0.wav", 9);
    CHECK_FALSE(files.fileExists(path));
    CHECK(textOf([&] { files.contents(path); }) == "“song\\x00.wav” couldn’t be read: Invalid argument");
    CHECK(textOf([&] { files.removeItem(path); }) == "“song\\x00.wav” couldn’t be removed: Invalid argument");
    CHECK(readFile(directory.path() / "song") == "sound");
}

TEST_CASE("files without a size of their own are copied to their end") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    files.copyItem("/proc/version", directory.path() / "copy");
    CHECK(readFile(directory.path() / "copy") == readFile("/proc/version"));
    CHECK_FALSE(readFile("/proc/version").empty());
}

TEST_CASE("a copy from one file system to another is complete") {
    const TemporaryDirectory directory;
    const OtherFileSystem other;
    PosixFileManager files(std::nullopt);
    std::string sound;
    for (int i = 0; sound.size() < 3'000'000; ++i) {
        sound += std::to_string(i);
    }
    files.copyItem(other.file("song.wav", sound), directory.path() / "copy.wav");
    CHECK(readFile(directory.path() / "copy.wav") == sound);
}

TEST_CASE("on a file system that can share blocks, a copy takes no room") {
    const TemporaryDirectory directory;
    const fs::path image = directory.file("image", "");
    const fs::path disk = directory.path() / "disk";
    fs::create_directory(disk);
    fs::resize_file(image, 400U << 20U);
    const std::string command = "mkfs.xfs -q '" + image.string() + "' >/dev/null 2>&1 && mount -o loop '" +
                                image.string() + "' '" + disk.string() + "' >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) {
        cadora::test::skipTest("it takes root, a loop device and mkfs.xfs");
        return;
    }
    const MountedFileSystem mounted(disk);
    PosixFileManager files(std::nullopt);
    const std::string sound(20U << 20U, 's');
    directory.file("disk/song.wav", sound);
    files.copyItem(disk / "song.wav", disk / "first.wav");
    const auto before = fs::space(disk).free;
    files.copyItem(disk / "song.wav", disk / "second.wav");
    CHECK(fs::space(disk).free + sound.size() / 10 > before);
    CHECK((files.contents(disk / "second.wav") == sound));
}

TEST_CASE("where there is no more room, the copy fails with the reason and leaves nothing") {
    const TemporaryDirectory directory;
    fs::create_directory(directory.path() / "small");
    const SmallFileSystem small(directory.path() / "small", "size=256k");
    if (!small.isMounted()) {
        cadora::test::skipTest("mounting a file system takes root");
        return;
    }
    PosixFileManager files(std::nullopt);
    directory.file("song.wav", std::string(400000, 's'));
    directory.file("project/inner/a", std::string(150000, 'a'));
    directory.file("project/inner/b", std::string(150000, 'b'));
    directory.file("small/before", "kept");
    const auto error =
        failureOf([&] { files.copyItem(directory.path() / "song.wav", directory.path() / "small/copy"); });
    REQUIRE(error);
    CHECK(*error == PlatformError("POSIX", ENOSPC, "“song.wav” couldn’t be copied: No space left on device"));
    CHECK(failureOf([&] {
              files.copyItem(directory.path() / "project", directory.path() / "small/copy");
          })->code() == ENOSPC);
    CHECK(names(directory.path() / "small") == std::vector<fs::path>{"before"});
    CHECK(textOf([&] {
              files.writeAtomically(directory.path() / "small/before", std::string(400000, 'i'));
          }) == "“before” couldn’t be written: No space left on device");
    CHECK(names(directory.path() / "small") == std::vector<fs::path>{"before"});
    CHECK(readFile(directory.path() / "small/before") == "kept");
}

TEST_CASE("where there is no room for one more name, the reason is told") {
    const TemporaryDirectory directory;
    fs::create_directory(directory.path() / "small");
    const SmallFileSystem small(directory.path() / "small", "nr_inodes=2");
    if (!small.isMounted()) {
        cadora::test::skipTest("mounting a file system takes root");
        return;
    }
    PosixFileManager files(std::nullopt);
    directory.file("small/index", "kept");
    directory.file("song.wav", "sound");
    CHECK(textOf([&] { files.copyItem(directory.path() / "song.wav", directory.path() / "small/copy"); }) ==
          "“song.wav” couldn’t be copied: No space left on device");
    CHECK(textOf([&] { files.createDirectory(directory.path() / "small/folder"); }) ==
          "“folder” couldn’t be created: No space left on device");
    CHECK(textOf([&] { files.writeAtomically(directory.path() / "small/index", "new"); }) ==
          "“index” couldn’t be written: No space left on device");
    CHECK(readFile(directory.path() / "small/index") == "kept");
}

TEST_CASE("a limit on the size of files is an error like any other") {
    const TemporaryDirectory directory;
    const OtherFileSystem other;
    PosixFileManager files(std::nullopt);
    directory.file("song.wav", std::string(100000, 's'));
    other.file("song.wav", std::string(100000, 's'));
    directory.file("index", "kept");
    {
        const FileSizeLimit limit(50000);
        for (const fs::path& source : {directory.path() / "song.wav", other.path() / "song.wav"}) {
            const auto error = failureOf([&] { files.copyItem(source, directory.path() / "copy"); });
            REQUIRE(error);
            CHECK(*error == PlatformError("POSIX", EFBIG, "“song.wav” couldn’t be copied: File too large"));
        }
        CHECK(textOf([&] { files.writeAtomically(directory.path() / "index", std::string(100000, 'i')); }) ==
              "“index” couldn’t be written: File too large");
    }
    CHECK(readFile(directory.path() / "index") == "kept");
    CHECK(names(directory.path()).size() == 2);
}

TEST_CASE("on a file system that can't be written, reasons are told and nothing changes") {
    const TemporaryDirectory directory;
    fs::create_directory(directory.path() / "small");
    const SmallFileSystem small(directory.path() / "small", "");
    if (!small.isMounted()) {
        cadora::test::skipTest("mounting a file system takes root");
        return;
    }
    PosixFileManager files(std::nullopt);
    directory.file("small/folder/take", "sound");
    REQUIRE(::mount("none", (directory.path() / "small").c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "") == 0);
    CHECK(textOf([&] {
              files.copyItem(directory.path() / "small/folder/take", directory.path() / "small/copy");
          }) == "“take” couldn’t be copied: Read-only file system");
    CHECK(textOf([&] { files.writeAtomically(directory.path() / "small/index", "text"); }) ==
          "“index” couldn’t be written: Read-only file system");
    CHECK(textOf([&] { files.removeItem(directory.path() / "small/folder"); }) ==
          "“folder” couldn’t be removed: Read-only file system");
    CHECK(textOf([&] { files.createDirectory(directory.path() / "small/new"); }) ==
          "“new” couldn’t be created: Read-only file system");
    files.createDirectory(directory.path() / "small/folder");
    CHECK(readFile(directory.path() / "small/folder/take") == "sound");
}

TEST_CASE("a folder too deep to be copied is refused, and what was copied of it is removed") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    rlimit before{};
    REQUIRE(::getrlimit(RLIMIT_NOFILE, &before) == 0);
    const rlimit limit{64, before.rlim_max};
    fs::path deep = directory.path() / "project";
    for (int i = 0; i < 100; ++i) {
        deep /= "d";
    }
    fs::create_directories(deep);
    REQUIRE(::setrlimit(RLIMIT_NOFILE, &limit) == 0);
    const auto error =
        failureOf([&] { files.copyItem(directory.path() / "project", directory.path() / "copy"); });
    ::setrlimit(RLIMIT_NOFILE, &before);
    REQUIRE(error);
    CHECK(error->code() == EMFILE);
    CHECK_FALSE(fs::exists(directory.path() / "copy"));
}

TEST_CASE("removing goes on past what can't be removed, and tells it") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    directory.file("folder/a", "");
    directory.file("folder/z", "");
    fs::create_directory(directory.path() / "folder/mounted");
    {
        const SmallFileSystem mounted(directory.path() / "folder/mounted", "");
        if (!mounted.isMounted()) {
            cadora::test::skipTest("mounting a file system takes root");
            return;
        }
        CHECK(textOf([&] { files.removeItem(directory.path() / "folder"); }) ==
              "“mounted” couldn’t be removed: Device or resource busy");
        CHECK(names(directory.path() / "folder") == std::vector<fs::path>{"mounted"});
    }
    files.removeItem(directory.path() / "folder");
    CHECK_FALSE(fs::exists(directory.path() / "folder"));
}

TEST_CASE("the first write clears away the temporaries that a crash left, and nothing else") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    directory.file(".index.0123456789abcdef.tmp", "left behind");
    directory.file(".index.fedcba9876543210.tmp", "in use");
    directory.file(".index.0123456789abcdeg.tmp", "not ours");
    directory.file(".other.0123456789abcdef.tmp", "another file's");
    const int user = ::open((directory.path() / ".index.fedcba9876543210.tmp").c_str(), O_RDWR | O_CLOEXEC);
    REQUIRE(::flock(user, LOCK_EX | LOCK_NB) == 0);
    files.writeAtomically(directory.path() / "index", "text");
    ::close(user);
    auto left = names(directory.path());
    std::sort(left.begin(), left.end());
    CHECK(left == std::vector<fs::path>{".index.0123456789abcdeg.tmp", ".index.fedcba9876543210.tmp",
                                        ".other.0123456789abcdef.tmp", "index"});
}

TEST_CASE("where no descriptor is left, the reserve serves reading, writing, listing and removing, again and "
          "again") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    directory.file("index", "before");
    directory.file("folder/a", "a");
    {
        const AllDescriptors none;
        CHECK(::open("/dev/null", O_RDONLY) == -1);
        for (int round = 0; round < 3; ++round) {
            CHECK(files.contents(directory.path() / "index") == "before");
            CHECK(files.contentsOfDirectory(directory.path() / "folder").size() == 1);
            files.writeAtomically(directory.path() / "index", "before");
        }
        files.removeItem(directory.path() / "folder");
    }
    CHECK_FALSE(fs::exists(directory.path() / "folder"));
    CHECK(readFile(directory.path() / "index") == "before");
}

TEST_CASE("room that was kept lets a file be replaced on a full disk, again and again, and no longer than it "
          "suffices") {
    const TemporaryDirectory directory;
    fs::create_directory(directory.path() / "small");
    const SmallFileSystem small(directory.path() / "small", "size=512k");
    if (!small.isMounted()) {
        cadora::test::skipTest("mounting a file system takes root");
        return;
    }
    const fs::path index = directory.path() / "small/index";
    PosixFileManager files(std::nullopt);
    files.writeAtomically(index, "first");
    files.keepRoom(directory.path() / "small", 65536);
    fillDisk(directory.path() / "small/filler");
    CHECK(failureOf([&] { PosixFileManager(std::nullopt).writeAtomically(index, "by another"); })->code() ==
          ENOSPC);
    for (int round = 0; round < 3; ++round) {
        files.writeAtomically(index, std::string(20000, static_cast<char>('a' + round)));
    }
    CHECK(failureOf([&] { files.writeAtomically(index, std::string(200000, 'x')); })->code() == ENOSPC);
    CHECK(readFile(index) == std::string(20000, 'c'));
    CHECK(names(directory.path() / "small").size() == 2);
}

TEST_CASE("a file too large to be read whole is an error, not the end of the memory") {
    const TemporaryDirectory directory;
    const fs::path file = directory.file("index", "");
    fs::resize_file(file, 1ULL << 42U);
    const auto error = failureOf([&] { PosixFileManager(std::nullopt).contents(file); });
    REQUIRE(error);
    CHECK(*error == PlatformError("POSIX", EFBIG, "“index” couldn’t be read: it is too large"));
}

TEST_CASE(
    "a folder of more than 10,000 entries, wherever they lie in it, is refused before anything is copied") {
    const TemporaryDirectory directory;
    PosixFileManager files(std::nullopt);
    fs::create_directories(directory.path() / "project/inner/deep");
    for (int i = 0; i < 9998; ++i) {
        fs::create_symlink("nowhere", directory.path() / "project/inner" / std::to_string(i));
    }
    files.copyItem(directory.path() / "project", directory.path() / "copy");
    CHECK(names(directory.path() / "copy/inner").size() == 9999);
    fs::create_symlink("nowhere", directory.path() / "project/inner/deep/one");
    const auto error =
        failureOf([&] { files.copyItem(directory.path() / "project", directory.path() / "second"); });
    REQUIRE(error);
    CHECK(error->text() == "“project” couldn’t be copied: it holds more than 10,000 files and folders");
    CHECK_FALSE(fs::exists(directory.path() / "second"));
}
