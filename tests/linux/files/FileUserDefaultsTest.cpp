#include "hosts/linux/files/FileUserDefaults.h"

#include "fakes/Recorders.h"
#include "fakes/TemporaryDirectory.h"
#include "hosts/linux/files/PosixFileManager.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace cadora::test {

namespace {

struct Fixture {
    TemporaryDirectory folder;
    PosixFileManager fileManager{folder.path()};
    std::filesystem::path file = folder.path() / "config" / "Cadora" / "domain.json";
    RecordingSystemLog log;
    FileUserDefaults defaults{fileManager, file, log};

    void write(const std::string& content) {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
    }
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(file.parent_path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

} // namespace

TEST_CASE_FIXTURE(Fixture, "the file appears with the first value, and nothing else does") {
    defaults.set("absent", std::nullopt);
    CHECK_FALSE(std::filesystem::exists(file.parent_path()));
    defaults.set("defaultVisibility", "subscribers");
    CHECK(readFile(file) == R"({"defaultVisibility":"subscribers"})");
    CHECK(names() == std::vector<std::string>{"domain.json"});
}

TEST_CASE_FIXTURE(Fixture, "values outlive the object, each domain in its own file") {
    defaults.set("hideMenuBarIcon", true);
    FileUserDefaults other(fileManager, file.parent_path() / "pbs.json", log);
    other.set("hideMenuBarIcon", false);
    CHECK(FileUserDefaults(fileManager, file, log).boolean("hideMenuBarIcon"));
    CHECK_FALSE(
        FileUserDefaults(fileManager, file.parent_path() / "pbs.json", log).boolean("hideMenuBarIcon"));
}

TEST_CASE_FIXTURE(Fixture, "a change that somebody makes to the file counts at once") {
    defaults.set("defaultVisibility", "private");
    write(R"({"defaultVisibility":"subscribers"})");
    CHECK(defaults.string("defaultVisibility") == "subscribers");
}

TEST_CASE_FIXTURE(Fixture, "what is in the file and can't be held is absent, and stays in the file") {
    write(R"({"list":[1],"nothing":null,"huge":18446744073709551615,"deep":{"list":[]},"name":"x"})");
    CHECK_FALSE(defaults.object("list"));
    CHECK_FALSE(defaults.object("nothing"));
    CHECK_FALSE(defaults.object("huge"));
    CHECK_FALSE(defaults.object("deep"));
    CHECK(defaults.string("name") == "x");
    defaults.set("name", std::nullopt);
    CHECK(readFile(file) == R"({"list":[1],"nothing":null,"huge":18446744073709551615,"deep":{"list":[]}})");
}

TEST_CASE_FIXTURE(Fixture,
                  "a file that can't be understood reads as empty and is kept aside by the next write") {
    for (const std::string damaged : {"", "{", "[]", R"({"a":1} rubbish)", "{\"a\":\"\xff\"}"}) {
        CAPTURE(damaged);
        Fixture fresh;
        fresh.write(damaged);
        CHECK_FALSE(fresh.defaults.object("a"));
        fresh.defaults.set("a", std::nullopt);
        CHECK(readFile(fresh.file) == damaged);
        fresh.defaults.set("b", "value");
        CHECK(fresh.defaults.string("b") == "value");
        CHECK(fresh.names() == std::vector<std::string>{"domain.json", "domain.json.damaged-1"});
        CHECK(readFile(fresh.file.string() + ".damaged-1") == damaged);
    }
}

TEST_CASE_FIXTURE(Fixture, "what was kept aside is never replaced") {
    write("first");
    defaults.set("a", "1");
    write("second");
    defaults.set("a", "2");
    CHECK(readFile(file.string() + ".damaged-1") == "first");
    CHECK(readFile(file.string() + ".damaged-2") == "second");
}

TEST_CASE_FIXTURE(Fixture, "where the damaged file can't be kept, the write is dropped") {
    // A folder in the file's place reads as damaged, and its copy fails for what it holds.
    std::filesystem::create_directories(file);
    REQUIRE(mkfifo((file / "fifo").c_str(), 0600) == 0);
    defaults.set("a", "1");
    CHECK_FALSE(defaults.object("a"));
    CHECK(std::filesystem::is_directory(file));
    CHECK(names() == std::vector<std::string>{"domain.json"});
}

TEST_CASE_FIXTURE(Fixture, "a value that JSON can't hold is dropped, and the file stays as it was") {
    defaults.set("a", "1");
    defaults.set("a", std::numeric_limits<double>::quiet_NaN());
    defaults.set("a", PropertyDictionary{{"b", std::numeric_limits<double>::infinity()}});
    defaults.set("a", "\xff");
    defaults.set("\xff", "1");
    CHECK(readFile(file) == R"({"a":"1"})");
}

TEST_CASE("without a place for the file everything is absent and nothing is written") {
    PosixFileManager fileManager(std::nullopt);
    RecordingSystemLog log;
    FileUserDefaults defaults(fileManager, {}, log);
    defaults.set("a", "1");
    CHECK_FALSE(defaults.object("a"));
}

TEST_CASE_FIXTURE(Fixture,
                  "a setting that can't be stored is told in one line of the log, and one that can is not") {
    defaults.set("a", "1");
    CHECK(log.lines.empty());
    const auto place = file.parent_path();
    std::filesystem::remove(file);
    std::filesystem::remove(place);
    std::ofstream(place) << "a file where the place should be";
    defaults.set("defaultVisibility", "subscribers");
    REQUIRE(log.lines.size() == 1);
    CHECK(log.lines[0].starts_with("[Cadora Helper] the setting “defaultVisibility” was not stored: “"));
}

TEST_CASE_FIXTURE(Fixture, "writes from several threads are all kept") {
    constexpr int threadCount = 4;
    constexpr int keyCount = 10;
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([this, thread] {
            for (int key = 0; key < keyCount; ++key) {
                defaults.set(std::to_string(thread) + "/" + std::to_string(key), std::int64_t{key});
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (int thread = 0; thread < threadCount; ++thread) {
        for (int key = 0; key < keyCount; ++key) {
            CHECK(defaults.object(std::to_string(thread) + "/" + std::to_string(key)) ==
                  PropertyValue(std::int64_t{key}));
        }
    }
}

} // namespace cadora::test
