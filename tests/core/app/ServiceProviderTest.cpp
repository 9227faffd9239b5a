#include "app/ServiceProvider.h"

#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

using namespace cadora;
using test::FakePasteboard;
using test::TestPlatform;

namespace {

struct Intake {
    Intake() {
        queue.onChange = [this] { ++changes; };
    }

    // Runs the turn in which the files are staged, and no more.
    std::string send(std::vector<URL> urls) {
        std::string error;
        provider.sendToCadora(FakePasteboard(std::move(urls)), std::nullopt, error);
        return error;
    }

    std::vector<std::string> names() {
        std::vector<std::string> names;
        for (const OutboxItem& item : store.load()) {
            names.push_back(item.sourceFilename);
        }
        return names;
    }

    URL file(const std::string& name) { return URL::file(platform.home.file(name, name)); }

    TestPlatform platform;
    OutboxStore store;
    UploadQueue queue{store};
    ServiceProvider provider{queue};
    int changes = 0;
};

using Names = std::vector<std::string>;

} // namespace

TEST_CASE("a pasteboard with nothing but a web link sets the error and leaves the outbox alone") {
    Intake intake;
    CHECK(intake.send({URL::constant("https://cadora.example/song.wav")}) == "No file to send to Cadora.");
    CHECK(intake.send({}) == "No file to send to Cadora.");
    CHECK_FALSE(intake.platform.mainActor.runTurn());
    CHECK(intake.store.load().empty());
}

TEST_CASE("two files and a web link stage two items, in the order of the pasteboard") {
    Intake intake;
    const URL first = intake.file("b.wav");
    const URL second = intake.file("a.wav");
    CHECK(intake.send({first, URL::constant("https://cadora.example/"), second}).empty());
    intake.platform.mainActor.runTurn();
    CHECK(intake.names() == Names{"b.wav", "a.wav"});
    CHECK(intake.changes == 2);
}

TEST_CASE("the files are copied after the call has returned") {
    Intake intake;
    intake.send({intake.file("a.wav")});
    CHECK(intake.store.load().empty());
    intake.platform.mainActor.runTurn();
    CHECK(intake.names() == Names{"a.wav"});
}

TEST_CASE("one of three files gone: one line in the log, two items, three changes and three kicks") {
    Intake intake;
    const URL first = intake.file("1.wav");
    const URL gone = intake.file("2.wav");
    const URL last = intake.file("3.wav");
    std::filesystem::remove(*gone.filePath());
    intake.send({first, gone, last});
    intake.platform.mainActor.runTurn();
    CHECK(intake.names() == Names{"1.wav", "3.wav"});
    CHECK(intake.changes == 3);
    REQUIRE(intake.platform.systemLog.lines.size() == 1);
    CHECK(intake.platform.systemLog.lines[0].rfind("[Cadora Helper] stage failed: ", 0) == 0);
    CHECK(intake.platform.systemLog.lines[0].find("2.wav") != std::string::npos);
    // Each kick started a pass of its own, and each pass fails both items, for nobody is signed in.
    intake.platform.mainActor.runUntilIdle();
    CHECK(intake.platform.notificationCenter.requests.size() == 6);
    CHECK(intake.store.load().at(0).attempts == 3);
    CHECK(intake.store.load().at(1).attempts == 3);
}

TEST_CASE("the visibility is read anew for every file") {
    Intake intake;
    intake.queue.onChange = [&] {
        intake.platform.userDefaults.set("defaultVisibility", PropertyValue("subscribers"));
    };
    intake.send({intake.file("a.wav"), intake.file("b.wav")});
    intake.platform.mainActor.runTurn();
    CHECK(intake.store.load().at(0).visibility == "private");
    CHECK(intake.store.load().at(1).visibility == "subscribers");
}

TEST_CASE("what is no audio is staged all the same, folders included") {
    Intake intake;
    intake.platform.home.file("folder/inside.txt", "x");
    intake.send({URL::file(intake.platform.home.path() / "folder"), intake.file("notes.txt")});
    intake.platform.mainActor.runTurn();
    CHECK(intake.names() == Names{"folder", "notes.txt"});
}

TEST_CASE("a file address of another computer is logged as a failed staging") {
    Intake intake;
    CHECK(intake.send({URL::constant("file://elsewhere/song.wav")}).empty());
    intake.platform.mainActor.runTurn();
    CHECK(intake.store.load().empty());
    CHECK(intake.platform.systemLog.lines.size() == 1);
    CHECK(intake.changes == 1);
}

TEST_CASE("when a request's files have been dealt with, its problems are told, in order, naming the files") {
    Intake intake;
    std::vector<std::vector<std::string>> told;
    intake.provider.onStaged = [&](const std::vector<std::string>& problems) { told.push_back(problems); };
    const URL gone = intake.file("gone.wav");
    std::filesystem::remove(*gone.filePath());
    intake.send({intake.file("1.wav"), gone, URL::constant("file://elsewhere/far.wav")});
    intake.send({intake.file("2.wav")});
    CHECK(told.empty());
    intake.platform.mainActor.runTurn();
    REQUIRE(told.size() == 1);
    REQUIRE(told[0].size() == 2);
    CHECK(told[0][0].find("gone.wav") != std::string::npos);
    CHECK(told[0][1] == "“far.wav” is no address of a file on this computer");
    CHECK(intake.platform.systemLog.lines ==
          std::vector<std::string>{"[Cadora Helper] stage failed: " + told[0][0],
                                   "[Cadora Helper] stage failed: " + told[0][1]});
    CHECK(intake.send({}) == "No file to send to Cadora.");
    intake.platform.mainActor.runUntilIdle();
    REQUIRE(told.size() == 2);
    CHECK(told[1].empty());
}

TEST_CASE("a recording that was copied but could not be put on the list is told") {
    Intake intake;
    std::vector<std::string> told;
    intake.provider.onStaged = [&](const std::vector<std::string>& problems) { told = problems; };
    intake.platform.fileManager.onWrite = [] { throw PlatformError("test", 28, "the disk is full"); };
    intake.send({intake.file("1.wav")});
    intake.platform.mainActor.runTurn();
    CHECK(told ==
          std::vector<std::string>{"“1.wav” was copied, but not put on the outbox’s list: the disk is full"});
    CHECK(intake.platform.systemLog.lines ==
          std::vector<std::string>{"[Cadora Helper] the outbox’s list was not saved: the disk is full"});
}

TEST_CASE("a request of more than 5,000 files is refused whole, and one of 5,000 is not") {
    Intake intake;
    const std::vector<URL> most(5000, URL::constant("file://elsewhere/song.wav"));
    std::vector<URL> tooMany = most;
    tooMany.push_back(URL::constant("https://cadora.example/"));
    CHECK(intake.send(tooMany).empty());
    intake.platform.mainActor.runTurn();
    CHECK(intake.changes == 5000);
    tooMany.back() = tooMany.front();
    CHECK(intake.send(tooMany) ==
          "These are too many files to send to Cadora at once: it takes 5,000 at most.");
    intake.platform.mainActor.runUntilIdle();
    CHECK(intake.changes == 5000);
}
