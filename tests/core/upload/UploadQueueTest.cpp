#include "upload/UploadQueue.h"

#include "api/AuthError.h"
#include "api/WireTypes.h"
#include "base/Deployment.h"
#include "fakes/Ending.h"
#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

using namespace cadora;
using namespace std::chrono_literals;
using test::TestPlatform;
namespace fs = std::filesystem;

namespace {

constexpr const char* presignPath = "/api/posts/presign";
constexpr const char* storePath = "/store";
constexpr const char* syncPath = "/api/posts/sync";

using Texts = std::vector<std::string>;

// A queue over an outbox of its own, signed in, with a service that accepts everything.
struct Desk {
    Desk() {
        platform.keychain.store("cadoraToken", "t");
        acceptEverything();
        queue.onChange = [this] {
            ++changes;
            drainingAtChange.push_back(queue.isDraining());
        };
    }

    void acceptEverything() {
        platform.urlSession.reset();
        platform.urlSession.answer(presignPath, 200,
                                   R"({"urls":{"audio":"https://store.example/store/key"}})");
        platform.urlSession.answer(storePath, 200);
        platform.urlSession.answer(syncPath, 200, R"({"success":true,"post_id":1})");
    }

    OutboxItem stage(const std::string& name, const std::string& visibility = "private") {
        return store.stage(platform.home.file(name, name), visibility);
    }

    // Puts an item with its source copy straight into a state.
    OutboxItem put(const std::string& id, OutboxState state) {
        OutboxItem item;
        item.shortID = id;
        item.sourceFilename = id + ".wav";
        item.state = state;
        item.createdAt = {1};
        platform.home.file("data/Cadora/Outbox/" + id + "/source.wav", "RIFF");
        store.upsert(item);
        return item;
    }

    fs::path recording(const OutboxItem& item) { return store.root() / item.shortID / "recording.m4a"; }

    void pass() {
        queue.kick();
        settle();
    }

    // Lets everything happen that can, the waits between upload attempts included.
    void settle() {
        platform.mainActor.runUntilIdle();
        for (int wait = 0; wait < 100 && platform.clock.sleeperCount() > 0; ++wait) {
            platform.clock.advance(4s);
            platform.mainActor.runUntilIdle();
        }
    }

    OutboxItem only() { return store.load().at(0); }
    Texts notices() const { return platform.notificationCenter.texts(); }
    std::string requests() const {
        std::string trace;
        for (const auto& sent : platform.urlSession.sent) {
            const std::string path = test::FakeURLSession::path(sent.request);
            trace += path.rfind("/store", 0) == 0 ? "put " : path == presignPath ? "presign " : "sync ";
        }
        return trace;
    }

    TestPlatform platform;
    OutboxStore store;
    UploadQueue queue{store};
    int changes = 0;
    std::vector<bool> drainingAtChange;
};

const Texts sent = {"Sent to Cadora ✓ | song.wav — private"};
const Texts couldNotSend = {"Couldn’t send to Cadora | song.wav"};

} // namespace

TEST_CASE("a pass over an empty outbox sets and clears its flag, and nothing else happens") {
    Desk desk;
    desk.queue.kick();
    CHECK_FALSE(desk.queue.isDraining());
    desk.settle();
    CHECK_FALSE(desk.queue.isDraining());
    CHECK(desk.changes == 0);
    CHECK(desk.notices().empty());
    CHECK(desk.platform.urlSession.sent.empty());
}

TEST_CASE("a pass handles no failed and no synced item") {
    Desk desk;
    desk.put("a", OutboxState::failed);
    desk.put("b", OutboxState::synced);
    desk.pass();
    CHECK(desk.changes == 0);
    CHECK(desk.store.load().size() == 2);
    CHECK(desk.platform.urlSession.sent.empty());
}

TEST_CASE("a staged item becomes a post: transcoded, uploaded, synced, told and removed") {
    Desk desk;
    const OutboxItem item = desk.stage("song.wav");
    Texts states;
    desk.queue.kick();
    while (desk.platform.mainActor.runTurn()) {
        const auto items = desk.store.load();
        const std::string state = items.empty() ? "removed" : rawValue(items[0].state);
        if (states.empty() || states.back() != state) {
            states.push_back(state);
        }
        if (state == "transcoded") {
            CHECK(items[0].duration == 12.5);
        }
    }
    CHECK(states == Texts{"staged", "transcoded", "uploaded", "removed"});
    CHECK(desk.requests() == "presign put sync ");
    CHECK(desk.notices() == sent);
    CHECK(desk.changes == 1);
    CHECK(desk.drainingAtChange == std::vector<bool>{true});
    CHECK_FALSE(desk.queue.isDraining());
    CHECK_FALSE(fs::exists(desk.store.root() / item.shortID));
    CHECK(desk.platform.urlSession.sent[1].file == desk.recording(item));
}

TEST_CASE("the three requests carry what the service expects") {
    Desk desk;
    const OutboxItem item = desk.stage("  Take   2.wav", "subscribers");
    desk.pass();
    const auto& requests = desk.platform.urlSession.sent;
    REQUIRE(requests.size() == 3);
    CHECK(requests[0].request.httpBody == R"({"uuid":")" + item.shortID + R"(","files":["audio"]})");
    CHECK(requests[1].request.url.text() == "https://store.example/store/key");
    CHECK_FALSE(requests[1].request.headers.value("Authorization"));
    const URLRequest& sync = requests[2].request;
    CHECK(sync.url.text() == deployment::apiOrigin() + syncPath);
    CHECK(sync.httpMethod == "POST");
    CHECK(sync.timeoutInterval == 60s);
    CHECK(sync.headers.value("Content-Type") == "application/json");
    CHECK(sync.headers.value("Authorization") == "Bearer t");
    CHECK(sync.httpBody ==
          R"({"uuid":")" + item.shortID +
              R"(","body":"Take 2","visibility":"subscribers","uploaded_files":["audio"],"duration":12.5})");
}

TEST_CASE("an item for subscribers is still told as private") {
    Desk desk;
    desk.stage("song.wav", "subscribers");
    desk.pass();
    CHECK(desk.notices() == sent);
}

TEST_CASE("an item without title, duration or visibility is sent without the first two, and as private") {
    Desk desk;
    OutboxItem item = desk.put("a", OutboxState::uploaded);
    item.sourceFilename = "   .wav";
    desk.store.upsert(item);
    desk.pass();
    CHECK(desk.platform.urlSession.sent.at(0).request.httpBody ==
          R"({"uuid":"a","visibility":"private","uploaded_files":["audio"]})");
    CHECK(desk.store.load().empty());
}

TEST_CASE("an interrupted item resumes from its stored state") {
    {
        Desk desk;
        desk.put("a", OutboxState::transcoded);
        desk.pass();
        CHECK(desk.requests() == "presign put sync ");
        CHECK(desk.platform.mediaFramework.calls.empty());
    }
    Desk desk;
    desk.put("a", OutboxState::uploaded);
    desk.pass();
    CHECK(desk.requests() == "sync ");
    CHECK(desk.store.load().empty());
}

TEST_CASE("signed out, every waiting item is deferred and told, once per pass") {
    Desk desk;
    desk.platform.keychain.items.clear();
    desk.put("a", OutboxState::staged);
    desk.put("b", OutboxState::transcoded);
    desk.put("c", OutboxState::uploaded);
    desk.put("d", OutboxState::deferredAuth);
    for (int pass = 1; pass <= 2; ++pass) {
        desk.pass();
        for (const OutboxItem& item : desk.store.load()) {
            CHECK(item.state == OutboxState::deferredAuth);
            CHECK(item.attempts == pass);
            CHECK(item.lastError == "notSignedIn");
        }
        CHECK(desk.notices().size() == static_cast<std::size_t>(4 * pass));
        CHECK(desk.changes == 4 * pass);
    }
    CHECK(desk.notices().front() == "Couldn’t send to Cadora | a.wav");
    CHECK(desk.platform.urlSession.sent.empty());
}

TEST_CASE("signed in again but not re-armed, a deferred item is handled and nothing changes") {
    Desk desk;
    const OutboxItem item = desk.put("a", OutboxState::deferredAuth);
    desk.pass();
    CHECK(desk.only() == item);
    CHECK(desk.changes == 1);
    CHECK(desk.notices().empty());
    CHECK(desk.platform.urlSession.sent.empty());
}

TEST_CASE("a deferred item whose source is gone fails all the same") {
    Desk desk;
    const OutboxItem item = desk.put("a", OutboxState::deferredAuth);
    fs::remove_all(desk.store.root() / item.shortID);
    desk.pass();
    CHECK(desk.only().state == OutboxState::failed);
    CHECK(desk.only().lastError == R"(missingURL("source"))");
}

TEST_CASE("each failure has its state and its text, one notification and one more attempt") {
    const std::string malformed = "The data couldn’t be read: “urls” is missing";
    struct Row {
        const char* what;
        std::function<void(Desk&)> arrange;
        OutboxState state;
        std::string text;
    };
    const PlatformError offline("URLSession", 7, "Couldn’t connect to api.example: Connection refused");
    // A service that accepts everything up to this path.
    const auto acceptUpTo = [](Desk& desk, const std::string& path) {
        desk.platform.urlSession.reset();
        if (path != presignPath) {
            desk.platform.urlSession.answer(presignPath, 200,
                                            R"({"urls":{"audio":"https://store.example/store/key"}})");
        }
        if (path == syncPath) {
            desk.platform.urlSession.answer(storePath, 200);
        }
    };
    const auto failing = [&](const std::string& path) {
        return [=](Desk& desk) {
            acceptUpTo(desk, path);
            desk.platform.urlSession.fail(path, std::make_exception_ptr(offline));
        };
    };
    const auto answering = [&](const std::string& path, int status, const std::string& body) {
        return [=](Desk& desk) {
            acceptUpTo(desk, path);
            desk.platform.urlSession.answer(path, status, body);
        };
    };
    const Row rows[] = {
        {"signed out", [](Desk& desk) { desk.platform.keychain.items.clear(); }, OutboxState::deferredAuth,
         "notSignedIn"},
        {"source gone", [](Desk& desk) { fs::remove_all(desk.store.root() / desk.only().shortID); },
         OutboxState::failed, R"(missingURL("source"))"},
        {"not audio",
         [](Desk& desk) {
             desk.platform.mediaFramework.duration =
                 std::make_exception_ptr(PlatformError("media", 1, "“song.wav” is not an audio file"));
         },
         OutboxState::failed, "“song.wav” is not an audio file"},
        {"no length", [](Desk& desk) { desk.platform.mediaFramework.duration = 0.0; }, OutboxState::failed,
         "noDuration"},
        {"export fails",
         [](Desk& desk) {
             desk.platform.mediaFramework.exportStatus = 4;
             desk.platform.mediaFramework.exportError = PlatformError("media", 2, "the disk is full");
         },
         OutboxState::failed, R"(exportFailed("the disk is full"))"},
        {"presign offline", failing(presignPath), OutboxState::failed, offline.message()},
        {"presign 401", answering(presignPath, 401, ""), OutboxState::deferredAuth, "refreshRequiresUI"},
        {"presign 500", answering(presignPath, 500, ""), OutboxState::failed, "http(500)"},
        {"presign malformed", answering(presignPath, 200, "{}"), OutboxState::failed, malformed},
        {"presign without our key", answering(presignPath, 200, R"({"urls":{}})"), OutboxState::failed,
         R"(missingURL("audio"))"},
        {"store offline", failing(storePath), OutboxState::failed, offline.message()},
        {"store 403", answering(storePath, 403, ""), OutboxState::failed, "http(403)"},
        {"store 500", answering(storePath, 500, ""), OutboxState::failed, "http(500)"},
        {"store 401", answering(storePath, 401, ""), OutboxState::failed, "http(401)"},
        {"sync offline", failing(syncPath), OutboxState::failed, offline.message()},
        {"sync 201", answering(syncPath, 201, R"({"success":true})"), OutboxState::failed, "http(201)"},
        {"sync 401", answering(syncPath, 401, ""), OutboxState::deferredAuth, "refreshRequiresUI"},
        {"sync 403", answering(syncPath, 403, ""), OutboxState::failed, "http(403)"},
        {"sync 500", answering(syncPath, 500, ""), OutboxState::failed, "http(500)"},
        {"sync malformed", answering(syncPath, 200, "[]"), OutboxState::failed,
         "The data couldn’t be read: “sync response” must be an object, not array"},
    };
    for (const Row& row : rows) {
        CAPTURE(row.what);
        Desk desk;
        desk.stage("song.wav");
        row.arrange(desk);
        desk.pass();
        const OutboxItem item = desk.only();
        CHECK(rawValue(item.state) == rawValue(row.state));
        CHECK(item.lastError == row.text);
        CHECK(item.attempts == 1);
        CHECK(desk.notices() == couldNotSend);
        CHECK(desk.changes == 1);
        CHECK_FALSE(desk.queue.isDraining());
    }
}

TEST_CASE("the duration of a transcoded item survives a failure that comes later") {
    Desk desk;
    desk.stage("song.wav");
    desk.platform.urlSession.reset();
    desk.platform.urlSession.answer(presignPath, 500);
    desk.pass();
    CHECK(desk.only().duration == 12.5);
    CHECK(desk.only().state == OutboxState::failed);
}

TEST_CASE("an answer of 200 counts as sent, also when it says success false") {
    Desk desk;
    desk.stage("song.wav");
    desk.platform.urlSession.reset();
    desk.platform.urlSession.answer(presignPath, 200,
                                    R"({"urls":{"audio":"https://store.example/store/key"}})");
    desk.platform.urlSession.answer(storePath, 200);
    desk.platform.urlSession.answer(syncPath, 200, R"({"success":false})");
    desk.pass();
    CHECK(desk.store.load().empty());
    CHECK(desk.notices() == sent);
}

TEST_CASE("a failure of the third of five items does not stop the fourth and fifth") {
    Desk desk;
    for (const char* name : {"1.wav", "2.wav", "3.wav", "4.wav", "5.wav"}) {
        desk.stage(name);
    }
    const auto items = desk.store.load();
    fs::remove_all(desk.store.root() / items[2].shortID);
    desk.pass();
    REQUIRE(desk.store.load().size() == 1);
    CHECK(desk.only().sourceFilename == "3.wav");
    CHECK(desk.notices() == Texts{"Sent to Cadora ✓ | 1.wav — private", "Sent to Cadora ✓ | 2.wav — private",
                                  "Couldn’t send to Cadora | 3.wav", "Sent to Cadora ✓ | 4.wav — private",
                                  "Sent to Cadora ✓ | 5.wav — private"});
    CHECK(desk.changes == 5);
}

TEST_CASE("a pass does not look at the outbox again: what is staged meanwhile waits for the next kick") {
    Desk desk;
    desk.stage("song.wav");
    desk.queue.kick();
    desk.platform.mainActor.runTurn();
    desk.stage("late.wav");
    desk.queue.kick();
    desk.settle();
    REQUIRE(desk.store.load().size() == 1);
    CHECK(desk.only().sourceFilename == "late.wav");
    CHECK(desk.only().state == OutboxState::staged);
    desk.pass();
    CHECK(desk.store.load().empty());
}

TEST_CASE("retrying a failed item whose duration is unknown transcodes it again") {
    Desk desk;
    OutboxItem item = desk.put("a", OutboxState::failed);
    item.attempts = 4;
    item.lastError = "http(500)";
    desk.store.upsert(item);
    desk.platform.home.file("data/Cadora/Outbox/a/recording.m4a", "m4a");
    desk.queue.retryFailed();
    CHECK(desk.only().state == OutboxState::staged);
    CHECK_FALSE(desk.only().lastError);
    CHECK(desk.only().attempts == 4);
}

TEST_CASE("retrying a failed item that is transcoded keeps its recording and its attempts") {
    Desk desk;
    OutboxItem item = desk.put("a", OutboxState::failed);
    item.attempts = 4;
    item.lastError = "http(500)";
    item.duration = 3;
    desk.store.upsert(item);
    desk.platform.home.file("data/Cadora/Outbox/a/recording.m4a", "m4a");
    desk.queue.retryFailed();
    CHECK(desk.only().state == OutboxState::transcoded);
    CHECK_FALSE(desk.only().lastError);
    CHECK(desk.only().attempts == 4);
    desk.settle();
    CHECK(desk.platform.mediaFramework.calls.empty());
    CHECK(desk.store.load().empty());
}

TEST_CASE("retrying a failed item with a duration but without the recording transcodes it again") {
    Desk desk;
    OutboxItem item = desk.put("a", OutboxState::deferredAuth);
    item.duration = 3;
    desk.store.upsert(item);
    desk.queue.retryFailed();
    CHECK(desk.only().state == OutboxState::staged);
}

TEST_CASE("retrying leaves items in other states alone, tells of the change once, and kicks") {
    Desk desk;
    desk.put("a", OutboxState::synced);
    desk.put("b", OutboxState::uploaded);
    desk.queue.retryFailed();
    CHECK(desk.changes == 1);
    CHECK(desk.store.load().at(1).state == OutboxState::uploaded);
    desk.settle();
    CHECK(desk.requests() == "sync ");
}

TEST_CASE("retrying an empty outbox tells of a change all the same") {
    Desk desk;
    desk.queue.retryFailed();
    CHECK(desk.changes == 1);
}

TEST_CASE("a kick while a pass runs starts none") {
    Desk desk;
    desk.stage("song.wav");
    desk.platform.mediaFramework.holdsExports = true;
    desk.queue.kick();
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.queue.isDraining());
    desk.queue.kick();
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.platform.mediaFramework.calls == Texts{"duration source.wav", "export source.wav"});
    desk.platform.mediaFramework.finishExports();
    desk.settle();
    CHECK(desk.notices() == sent);
}

TEST_CASE("a kick never sets the flag itself: the pass does when it begins") {
    Desk desk;
    desk.stage("song.wav");
    desk.queue.kick();
    CHECK_FALSE(desk.queue.isDraining());
    desk.platform.mainActor.runTurn();
    CHECK(desk.queue.isDraining());
}

TEST_CASE("three kicks in one turn start three passes, and each carries the item through every step") {
    Desk desk;
    const OutboxItem item = desk.stage("song.wav");
    desk.queue.kick();
    desk.queue.kick();
    desk.queue.kick();
    desk.settle();
    CHECK(desk.platform.mediaFramework.calls == Texts{"duration source.wav", "duration source.wav",
                                                      "duration source.wav", "export source.wav",
                                                      "export source.wav", "export source.wav"});
    CHECK(desk.requests() == "presign presign presign put put put sync sync sync ");
    CHECK(desk.notices() == Texts{sent[0], sent[0], sent[0]});
    CHECK(desk.changes == 3);
    CHECK(desk.store.load().empty());
    CHECK_FALSE(fs::exists(desk.store.root() / item.shortID));
    // The first pass to end clears the flag although the others still run.
    CHECK(desk.drainingAtChange == std::vector<bool>{true, false, false});
    CHECK_FALSE(desk.queue.isDraining());
}

TEST_CASE("the first of several passes to end clears the flag, so that the next kick starts another") {
    Desk desk;
    desk.stage("song.wav");
    desk.queue.kick();
    desk.queue.kick();
    while (desk.changes == 0) {
        REQUIRE(desk.platform.mainActor.runTurn());
    }
    CHECK_FALSE(desk.queue.isDraining());
    desk.stage("next.wav");
    desk.queue.kick();
    desk.settle();
    CHECK(desk.store.load().empty());
    CHECK(desk.notices() == Texts{sent[0], sent[0], "Sent to Cadora ✓ | next.wav — private"});
}

TEST_CASE("of two passes that hold the same item, the slower records it again and then removes it for good") {
    Desk desk;
    const OutboxItem item = desk.put("a", OutboxState::transcoded);
    // The first upload succeeds at once, the second only after its first wait.
    desk.platform.urlSession.reset();
    desk.platform.urlSession.answer(presignPath, 200,
                                    R"({"urls":{"audio":"https://store.example/store/key"}})");
    desk.platform.urlSession.answer(storePath, 200);
    desk.platform.urlSession.answer(storePath, 503);
    desk.platform.urlSession.answer(storePath, 200);
    desk.platform.urlSession.answer(syncPath, 200, "{}");
    desk.queue.kick();
    desk.queue.kick();
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.store.load().empty());
    CHECK(desk.notices() == Texts{"Sent to Cadora ✓ | a.wav — private"});

    desk.platform.clock.advance(2s);
    bool recordedAgain = false;
    while (desk.platform.mainActor.runTurn()) {
        const auto items = desk.store.load();
        recordedAgain = recordedAgain || (items.size() == 1 && items[0].state == OutboxState::uploaded);
    }
    CHECK(recordedAgain);
    CHECK(desk.store.load().empty());
    CHECK(desk.requests() == "presign presign put put sync put sync ");
    CHECK(desk.notices().size() == 2);
    CHECK_FALSE(fs::exists(desk.recording(item)));
}

TEST_CASE(
    "a pass that comes late to an item which another has sent records it as failed for want of its source") {
    Desk desk;
    desk.stage("1.wav");
    desk.stage("2.wav");
    // The first pass waits at the first item while the second sends both.
    desk.platform.urlSession.reset();
    desk.platform.urlSession.answer(presignPath, 200,
                                    R"({"urls":{"audio":"https://store.example/store/key"}})");
    desk.platform.urlSession.answer(storePath, 503);
    desk.platform.urlSession.answer(storePath, 200);
    desk.platform.urlSession.answer(syncPath, 200, "{}");
    desk.queue.kick();
    desk.queue.kick();
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.store.load().empty());
    CHECK(desk.platform.urlSession.count(syncPath) == 2);

    desk.settle();
    CHECK(desk.platform.urlSession.count(syncPath) == 3);
    REQUIRE(desk.store.load().size() == 1);
    CHECK(desk.only().sourceFilename == "2.wav");
    CHECK(desk.only().state == OutboxState::failed);
    CHECK(desk.only().lastError == R"(missingURL("source"))");
    CHECK(desk.notices() == Texts{"Sent to Cadora ✓ | 1.wav — private", "Sent to Cadora ✓ | 2.wav — private",
                                  "Sent to Cadora ✓ | 1.wav — private", "Couldn’t send to Cadora | 2.wav"});
}

TEST_CASE("a pass waits for an item's upload attempts before it goes on to the next item") {
    Desk desk;
    desk.stage("1.wav");
    desk.stage("2.wav");
    desk.platform.urlSession.reset();
    desk.platform.urlSession.answer(presignPath, 200,
                                    R"({"urls":{"audio":"https://store.example/store/key"}})");
    desk.platform.urlSession.answer(storePath, 503);
    desk.platform.urlSession.answer(storePath, 200);
    desk.platform.urlSession.answer(syncPath, 200, "{}");
    desk.queue.kick();
    desk.platform.mainActor.runUntilIdle();
    CHECK(desk.requests() == "presign put ");
    desk.settle();
    CHECK(desk.requests() == "presign put put sync presign put sync ");
}

TEST_CASE("signed out counts before a source that is gone") {
    Desk desk;
    desk.platform.keychain.items.clear();
    const OutboxItem item = desk.put("a", OutboxState::staged);
    fs::remove_all(desk.store.root() / item.shortID);
    desk.pass();
    CHECK(desk.only().lastError == "notSignedIn");
    CHECK(desk.only().state == OutboxState::deferredAuth);
}

TEST_CASE("an item without a visibility is sent as private, whatever is chosen now") {
    Desk desk;
    desk.platform.userDefaults.set("defaultVisibility", PropertyValue("subscribers"));
    desk.put("a", OutboxState::uploaded);
    desk.pass();
    CHECK(desk.platform.urlSession.sent.at(0).request.httpBody ==
          R"({"uuid":"a","body":"a","visibility":"private","uploaded_files":["audio"]})");
}

TEST_CASE("an item is told as sent before it is removed") {
    Desk desk;
    desk.put("a", OutboxState::uploaded);
    desk.platform.fileManager.onWrite = [&] { desk.platform.trace.add("write"); };
    desk.platform.trace.clear();
    desk.pass();
    Texts steps = desk.platform.trace.steps();
    std::erase(steps, "post");
    CHECK(steps ==
          Texts{"notify Sent to Cadora ✓", "write", "removeItem " + (desk.store.root() / "a").string()});
}

TEST_CASE("a failure is stored, then notified, then told to who watches the queue") {
    Desk desk;
    desk.put("a", OutboxState::staged);
    desk.platform.keychain.items.clear();
    desk.platform.fileManager.onWrite = [&] { desk.platform.trace.add("write"); };
    desk.queue.onChange = [&] { desk.platform.trace.add("change"); };
    desk.platform.trace.clear();
    desk.pass();
    CHECK(desk.platform.trace.steps() == Texts{"post", "write", "notify Couldn’t send to Cadora", "change"});
}

TEST_CASE("more attempts than can be counted end the program") {
    Desk desk;
    OutboxItem item = desk.put("a", OutboxState::staged);
    desk.platform.keychain.items.clear();
    item.attempts = std::numeric_limits<std::int64_t>::max() - 1;
    desk.store.upsert(item);
    desk.pass();
    CHECK(desk.only().attempts == std::numeric_limits<std::int64_t>::max());
    CHECK(test::aborts([&] { desk.pass(); }));
}

TEST_CASE("an error's text that is not UTF-8 is stored as what can be shown of it") {
    Desk desk;
    desk.stage("song.wav");
    desk.platform.mediaFramework.duration = std::make_exception_ptr(PlatformError("media", 1, "caf\xE9.wav"));
    desk.pass();
    CHECK(desk.only().lastError == "caf\xEF\xBF\xBD.wav");
    CHECK(desk.only().state == OutboxState::failed);
}

TEST_CASE("a retry tells of the change before it kicks") {
    Desk desk;
    desk.put("a", OutboxState::failed);
    desk.queue.onChange = [&] { desk.platform.trace.add("change"); };
    desk.platform.trace.clear();
    desk.queue.retryFailed();
    CHECK(desk.platform.trace.steps() == Texts{"change", "post"});
}

TEST_CASE("nobody needs to watch the queue") {
    Desk desk;
    desk.queue.onChange = nullptr;
    desk.stage("song.wav");
    desk.put("a", OutboxState::failed);
    desk.pass();
    CHECK(desk.notices() == sent);
    desk.queue.retryFailed();
    desk.settle();
    CHECK(desk.store.load().empty());
}

TEST_CASE("a session that can't be renewed defers the item, and a missing account fails it") {
    for (const auto& [error, state] : {std::pair(AuthError::refreshFailed(), OutboxState::deferredAuth),
                                       std::pair(AuthError::noAccount(), OutboxState::failed),
                                       std::pair(AuthError::badResponse(), OutboxState::failed)}) {
        CAPTURE(error.text());
        Desk desk;
        desk.put("a", OutboxState::uploaded);
        desk.platform.urlSession.reset();
        desk.platform.urlSession.fail(syncPath, std::make_exception_ptr(error));
        desk.pass();
        CHECK(rawValue(desk.only().state) == rawValue(state));
        CHECK(desk.only().lastError == error.text());
    }
}

TEST_CASE("who signs out between two steps sends the next request without credentials") {
    Desk desk;
    desk.stage("song.wav");
    desk.queue.kick();
    while (desk.platform.urlSession.count(storePath) == 0 && desk.platform.mainActor.runTurn()) {
    }
    desk.platform.keychain.items.clear();
    desk.settle();
    REQUIRE(desk.platform.urlSession.count(syncPath) == 1);
    CHECK_FALSE(desk.platform.urlSession.sent.back().request.headers.value("Authorization"));
    CHECK(desk.platform.urlSession.sent.front().request.headers.value("Authorization") == "Bearer t");
}

TEST_CASE("a notification that the user has forbidden changes nothing else") {
    Desk desk;
    desk.platform.notificationCenter.isDenied = true;
    desk.stage("song.wav");
    desk.put("a", OutboxState::transcoded);
    desk.pass();
    CHECK(desk.notices().empty());
    CHECK(desk.platform.systemLog.lines.empty());
    CHECK(desk.requests() == "presign put sync presign put sync ");
    CHECK(desk.store.load().empty());
}

TEST_CASE("a request is built and its answer judged in the background") {
    Desk desk;
    desk.put("a", OutboxState::uploaded);
    desk.platform.background.onRun = [&](bool isRunning) {
        desk.platform.trace.add(isRunning ? "background" : "main");
    };
    desk.platform.trace.clear();
    desk.pass();
    // Building, the credentials, judging.
    const Texts steps = desk.platform.trace.steps();
    CHECK(std::count(steps.begin(), steps.end(), "background") == 3);
}
