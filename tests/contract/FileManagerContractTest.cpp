// What every host's file manager must do. Run by a program that defines makeFileManager().

#include "contract/FileManagerUnderTest.h"

#include "base/Error.h"
#include "fakes/TemporaryDirectory.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <functional>

using cadora::FileManager;
using cadora::PlatformError;
using cadora::test::makeFileManager;
using cadora::test::readFile;
using cadora::test::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

struct Files {
    std::unique_ptr<FileManager> manager = makeFileManager();
    TemporaryDirectory directory;

    fs::path operator/(const fs::path& name) const { return directory.path() / name; }
};

std::string failureOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const PlatformError& error) {
        return error.message();
    }
    return "no failure";
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::vector<std::string> sortedNames(FileManager& manager, const fs::path& folder) {
    std::vector<std::string> names;
    for (const fs::path& name : manager.contentsOfDirectory(folder)) {
        names.push_back(name.native());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST_CASE("a directory is made with those above it, and again without complaint") {
    const Files files;
    files.manager->createDirectory(files / "a/b/c");
    CHECK(fs::is_directory(files / "a/b/c"));
    files.manager->createDirectory(files / "a/b/c");
    files.manager->createDirectory(files / "a/b/d/");
    CHECK(fs::is_directory(files / "a/b/d"));
}

TEST_CASE("a directory can't be made where a file stands, nor below one") {
    const Files files;
    files.directory.file("song", "sound");
    CHECK(contains(failureOf([&] { files.manager->createDirectory(files / "song"); }), "“song”"));
    CHECK(contains(failureOf([&] { files.manager->createDirectory(files / "song/more"); }), "“more”"));
    CHECK(readFile(files / "song") == "sound");
}

TEST_CASE("the names in a directory are all told, hidden ones included") {
    const Files files;
    files.directory.file(".hidden", "");
    files.directory.file("source.wav", "");
    files.directory.file("folder/inside", "");
    CHECK(sortedNames(*files.manager, files.directory.path()) ==
          std::vector<std::string>{".hidden", "folder", "source.wav"});
    CHECK(contains(failureOf([&] { files.manager->contentsOfDirectory(files / "none"); }), "“none”"));
    CHECK(contains(failureOf([&] { files.manager->contentsOfDirectory(files / "source.wav"); }),
                   "“source.wav”"));
}

TEST_CASE("a file or folder exists, also at the end of a link; what a broken link points to doesn't") {
    const Files files;
    files.directory.file("song", "sound");
    fs::create_symlink("song", files / "link");
    fs::create_symlink("gone", files / "broken");
    CHECK(files.manager->fileExists(files / "song"));
    CHECK(files.manager->fileExists(files.directory.path()));
    CHECK(files.manager->fileExists(files / "link"));
    CHECK_FALSE(files.manager->fileExists(files / "broken"));
    CHECK_FALSE(files.manager->fileExists(files / "none"));
    CHECK_FALSE(files.manager->fileExists(files / "song/below"));
}

TEST_CASE("a file is copied byte for byte and stays where it is") {
    const Files files;
    const std::string sound("RIFF\0\xFF sound\n", 13);
    files.directory.file("song.wav", sound);
    files.manager->copyItem(files / "song.wav", files / "copy.wav");
    CHECK(readFile(files / "copy.wav") == sound);
    CHECK(readFile(files / "song.wav") == sound);
}

TEST_CASE("an empty file is copied as one") {
    const Files files;
    files.directory.file("empty", "");
    files.manager->copyItem(files / "empty", files / "copy");
    CHECK(fs::file_size(files / "copy") == 0);
}

TEST_CASE("a link given to copy stands for what it points to") {
    const Files files;
    files.directory.file("song.wav", "sound");
    fs::create_symlink("song.wav", files / "link.wav");
    files.manager->copyItem(files / "link.wav", files / "copy.wav");
    CHECK(fs::symlink_status(files / "copy.wav").type() == fs::file_type::regular);
    CHECK(readFile(files / "copy.wav") == "sound");
}

TEST_CASE("a folder is copied with all that is in it, links as links") {
    const Files files;
    files.directory.file("project/audio/take 1.wav", "one");
    files.directory.file("project/.settings", "two");
    fs::create_directory(files / "project/empty");
    fs::create_symlink("audio/take 1.wav", files / "project/best");
    fs::create_symlink("nowhere", files / "project/broken");
    files.manager->copyItem(files / "project", files / "copy");
    CHECK(readFile(files / "copy/audio/take 1.wav") == "one");
    CHECK(readFile(files / "copy/.settings") == "two");
    CHECK(fs::is_directory(files / "copy/empty"));
    CHECK(fs::read_symlink(files / "copy/best") == "audio/take 1.wav");
    CHECK(fs::read_symlink(files / "copy/broken") == "nowhere");
    CHECK(readFile(files / "project/audio/take 1.wav") == "one");
}

TEST_CASE("a folder is not copied into itself") {
    const Files files;
    files.directory.file("project/take", "sound");
    fs::create_directory(files / "project/inside");
    CHECK(contains(failureOf([&] { files.manager->copyItem(files / "project", files / "project/copy"); }),
                   "“project” couldn’t be copied"));
    CHECK(contains(
        failureOf([&] { files.manager->copyItem(files / "project", files / "project/inside/copy"); }),
        "“project” couldn’t be copied"));
    CHECK(sortedNames(*files.manager, files / "project") == std::vector<std::string>{"inside", "take"});
    CHECK(sortedNames(*files.manager, files / "project/inside").empty());
}

TEST_CASE("a copy never replaces what is there") {
    const Files files;
    files.directory.file("song.wav", "new");
    files.directory.file("folder/take", "new");
    files.directory.file("taken", "old");
    files.directory.file("taken folder/take", "old");
    fs::create_symlink("nowhere", files / "taken link");
    for (const char* const source : {"song.wav", "folder"}) {
        for (const char* const target : {"taken", "taken folder", "taken link"}) {
            const std::string failure =
                failureOf([&] { files.manager->copyItem(files / source, files / target); });
            CHECK(contains(failure, "“" + std::string(source) + "” couldn’t be copied"));
            CHECK(contains(failure, "“" + std::string(target) + "”"));
        }
    }
    CHECK(readFile(files / "taken") == "old");
    CHECK(readFile(files / "taken folder/take") == "old");
    CHECK(fs::read_symlink(files / "taken link") == "nowhere");
}

TEST_CASE("what isn't there can't be copied, and nothing appears") {
    const Files files;
    CHECK(contains(failureOf([&] { files.manager->copyItem(files / "gone.wav", files / "copy"); }),
                   "“gone.wav” couldn’t be copied"));
    CHECK_FALSE(fs::exists(fs::symlink_status(files / "copy")));
    files.directory.file("song.wav", "sound");
    CHECK(contains(failureOf([&] { files.manager->copyItem(files / "song.wav", files / "no folder/copy"); }),
                   "“no folder”"));
}

TEST_CASE("a file, a folder with everything in it, and a link alone are removed") {
    const Files files;
    files.directory.file("song", "sound");
    files.directory.file("kept/take", "sound");
    files.directory.file("folder/deep/deeper/take", "sound");
    fs::create_directory_symlink(files / "kept", files / "folder/deep/link");
    fs::create_directory_symlink(files / "kept", files / "link");
    files.manager->removeItem(files / "song");
    files.manager->removeItem(files / "folder");
    files.manager->removeItem(files / "link");
    CHECK(sortedNames(*files.manager, files.directory.path()) == std::vector<std::string>{"kept"});
    CHECK(readFile(files / "kept/take") == "sound");
    CHECK(contains(failureOf([&] { files.manager->removeItem(files / "song"); }),
                   "“song” couldn’t be removed"));
}

TEST_CASE("a file's contents are read whole; a folder has none") {
    const Files files;
    const std::string bytes("a\0b\r\n\xFF", 6);
    files.directory.file("index", bytes);
    files.directory.file("large", std::string(300000, 'x'));
    CHECK(files.manager->contents(files / "index") == bytes);
    CHECK(files.manager->contents(files / "large") == std::string(300000, 'x'));
    CHECK(contains(failureOf([&] { files.manager->contents(files / "none"); }), "“none” couldn’t be read"));
    CHECK(contains(failureOf([&] { files.manager->contents(files.directory.path()); }), "couldn’t be read"));
}

TEST_CASE("a file is written, replaced by something shorter, and nothing else appears beside it") {
    const Files files;
    files.manager->writeAtomically(files / "index", "a long first version");
    CHECK(readFile(files / "index") == "a long first version");
    files.manager->writeAtomically(files / "index", "second");
    CHECK(readFile(files / "index") == "second");
    files.manager->writeAtomically(files / "index", "");
    CHECK(readFile(files / "index").empty());
    CHECK(sortedNames(*files.manager, files.directory.path()) == std::vector<std::string>{"index"});
}

TEST_CASE("a write that fails leaves what was there and nothing beside it") {
    const Files files;
    files.directory.file("folder/take", "sound");
    CHECK(contains(failureOf([&] { files.manager->writeAtomically(files / "folder", "text"); }),
                   "“folder” couldn’t be written"));
    CHECK(contains(failureOf([&] { files.manager->writeAtomically(files / "none/index", "text"); }),
                   "“index” couldn’t be written"));
    CHECK(sortedNames(*files.manager, files.directory.path()) == std::vector<std::string>{"folder"});
    CHECK(readFile(files / "folder/take") == "sound");
}

TEST_CASE("whoever holds the old file open goes on reading the old one") {
    const Files files;
    files.manager->writeAtomically(files / "index", "old");
    std::ifstream reader(files / "index");
    files.manager->writeAtomically(files / "index", "new");
    std::string text;
    reader >> text;
    CHECK(text == "old");
}

TEST_CASE("every name that the file system takes works everywhere") {
    const std::vector<std::string> names = {
        std::string(255, 'n'),              // as long as a name can be
        "line\nbreak\r.wav",                //
        "cafe\u0301 \u1112\u1161\u11AB",    // decomposed
        "Björk “quoted” \\back\\ 100%.wav", //
        " ",                                //
        "-rf",                              //
    };
    for (const std::string& name : names) {
        CAPTURE(name);
        const Files files;
        files.manager->createDirectory(files / "folder" / name);
        files.manager->removeItem(files / "folder" / name);
        files.manager->writeAtomically(files / "folder" / name, "one");
        files.manager->writeAtomically(files / "folder" / name, "two");
        files.manager->copyItem(files / "folder" / name, files / name);
        CHECK(files.manager->contents(files / name) == "two");
        files.manager->copyItem(files / "folder", files / "copy");
        CHECK(sortedNames(*files.manager, files / "copy") == std::vector<std::string>{name});
        files.manager->removeItem(files / name);
        CHECK_FALSE(files.manager->fileExists(files / name));
    }
}

TEST_CASE("a failure's text shows line breaks and control characters as such") {
    const Files files;
    CHECK(contains(failureOf([&] { files.manager->copyItem(files / "two\nlines\x1B[2J", files / "copy"); }),
                   "“two\\nlines\\x1b[2J” couldn’t be copied: "));
}

TEST_CASE("a file is the same under all its names, and another once it is replaced or changed") {
    const Files files;
    CHECK_FALSE(files.manager->identity(files / "song"));
    files.manager->writeAtomically(files / "song", "sound");
    const auto song = files.manager->identity(files / "song");
    REQUIRE(song);
    CHECK(song->size == 5);
    fs::create_hard_link(files / "song", files / "same");
    fs::create_symlink(files / "song", files / "link");
    CHECK(files.manager->identity(files / "same") == song);
    CHECK(files.manager->identity(files / "link") == song);
    files.manager->writeAtomically(files / "song", "sound");
    CHECK(files.manager->identity(files / "song") != song);
    CHECK(files.manager->identity(files / "same") == song);
    std::ofstream(files / "same", std::ios::app) << "s";
    CHECK(files.manager->identity(files / "same") != song);
}

TEST_CASE("whether a file holds some bytes is told of all of them") {
    const Files files;
    const std::string bytes = std::string(100'000, 'a') + '\0' + "end";
    CHECK_FALSE(files.manager->holds(files / "index", ""));
    CHECK_FALSE(files.manager->holds(files.directory.path(), ""));
    files.manager->writeAtomically(files / "index", bytes);
    CHECK(files.manager->holds(files / "index", bytes));
    CHECK_FALSE(files.manager->holds(files / "index", bytes.substr(1)));
    CHECK_FALSE(files.manager->holds(files / "index", bytes + "d"));
    CHECK_FALSE(files.manager->holds(files / "index", std::string(100'000, 'a') + '\0' + "eNd"));
    files.manager->writeAtomically(files / "index", "");
    CHECK(files.manager->holds(files / "index", ""));
}

TEST_CASE(
    "a further name is the same file, whatever becomes of the first, and never replaces what is there") {
    const Files files;
    files.directory.file("a", "first");
    files.manager->linkItem(files / "a", files / "b");
    files.manager->writeAtomically(files / "a", "second");
    CHECK(readFile(files / "a") == "second");
    CHECK(readFile(files / "b") == "first");
    CHECK_THROWS_AS(files.manager->linkItem(files / "a", files / "b"), PlatformError);
    CHECK(readFile(files / "b") == "first");
    CHECK_THROWS_AS(files.manager->linkItem(files / "missing", files / "c"), PlatformError);
    CHECK(contains(failureOf([&] { files.manager->linkItem(files / "missing", files / "c"); }), "missing"));
    CHECK(sortedNames(*files.manager, files.directory.path()) == std::vector<std::string>{"a", "b"});
}

TEST_CASE("room that is kept is not seen, and a folder that isn't there has none") {
    const Files files;
    files.manager->keepRoom(files.directory.path(), 100000);
    files.manager->keepRoom(files.directory.path(), 200000);
    files.manager->keepRoom(files / "missing", 1);
    CHECK(files.manager->contentsOfDirectory(files.directory.path()).empty());
    files.manager->writeAtomically(files / "a", "x");
    CHECK(sortedNames(*files.manager, files.directory.path()) == std::vector<std::string>{"a"});
}
