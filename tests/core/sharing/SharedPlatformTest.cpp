#include "sharing/SharedPlatform.h"

#include "fakes/TestPlatform.h"
#include "upload/UploadQueue.h"

#include <doctest/doctest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

using namespace cadora;
using namespace std::chrono_literals;
using test::TestPlatform;

namespace {

using Answer = URLSession::Answer;
using Texts = std::vector<std::string>;

// A URL session whose answers the test gives, one by one.
class HeldSession : public URLSession {
public:
    struct Transfer {
        URLRequest request;
        std::filesystem::path file;
        Completion<Answer> complete;
        bool isCancelled = false;
    };
    std::vector<std::shared_ptr<Transfer>> transfers;

    CancelAction data(URLRequest request, Completion<Answer> completion) override {
        return upload(std::move(request), {}, std::move(completion));
    }
    CancelAction upload(URLRequest request, std::filesystem::path file,
                        Completion<Answer> completion) override {
        const auto transfer =
            std::make_shared<Transfer>(Transfer{std::move(request), std::move(file), std::move(completion)});
        transfers.push_back(transfer);
        return [transfer] { transfer->isCancelled = true; };
    }
};

URLRequest request(const std::string& path, const std::string& token = "t") {
    URLRequest result{URL::constant("https://api.example" + path)};
    result.headers.setValue("Bearer " + token, "Authorization");
    return result;
}

// The layer over a platform of fakes and a URL session that the test answers.
struct Layer {
    Layer() : host(hostOf(fakes, session)), shared(host) {}

    static Platform hostOf(TestPlatform& fakes, URLSession& session) {
        return {fakes.mainActor,
                fakes.background,
                fakes.clock,
                fakes.fileManager,
                fakes.random,
                fakes.systemLog,
                fakes.userDefaults,
                fakes.keychain,
                session,
                fakes.mediaFramework,
                fakes.notificationCenter,
                fakes.application,
                fakes.webAuthentication,
                fakes.workspace,
                fakes.processLauncher};
    }

    // What each that asked was told, by his name.
    Completion<Answer> note(const std::string& name) {
        return [this, name](const Result<Answer>& result) {
            const auto* answer = std::get_if<Answer>(&result);
            told.push_back(name + ": " + (answer ? answer->data : "failed"));
        };
    }
    void answer(std::size_t transfer, const std::string& data) {
        session.transfers.at(transfer)->complete(Answer{data, {200}});
    }
    void run() { fakes.mainActor.runUntilIdle(); }
    URLSession& urls() { return shared.platform().urlSession; }
    Keychain& keychain() { return shared.platform().keychain; }

    TestPlatform fakes;
    HeldSession session;
    Platform host;
    SharedPlatform shared;
    Texts told;
};

} // namespace

TEST_CASE("three kicks over the shared platform: three passes, one of everything, told by each") {
    TestPlatform fakes;
    const SharedPlatform shared(Layer::hostOf(fakes, fakes.urlSession));
    Platform::install(&shared.platform());
    fakes.keychain.store("cadoraToken", "t");
    fakes.urlSession.answer("/api/posts/presign", 200,
                            R"({"urls":{"audio":"https://store.example/store/key"}})");
    fakes.urlSession.answer("/store", 200);
    fakes.urlSession.answer("/api/posts/sync", 200, "{}");
    OutboxStore store;
    UploadQueue queue(store);
    int changes = 0;
    queue.onChange = [&] { ++changes; };
    store.stage(fakes.home.file("song.wav", "RIFF"), "private");
    for (int kick = 0; kick < 3; ++kick) {
        queue.kick();
    }
    fakes.mainActor.runUntilIdle();
    CHECK(fakes.mediaFramework.calls == Texts{"duration source.wav", "export source.wav"});
    CHECK(fakes.urlSession.sent.size() == 3);
    CHECK(fakes.notificationCenter.texts() == Texts(3, "Sent to Cadora ✓ | song.wav — private"));
    CHECK(changes == 3);
    CHECK(store.load().empty());
}

TEST_CASE("identical requests are one, answered together in the order in which they were asked") {
    Layer layer;
    layer.urls().data(request("/a"), layer.note("first"));
    layer.urls().data(request("/a"), layer.note("second"));
    layer.run();
    layer.urls().data(request("/a"), layer.note("third"));
    REQUIRE(layer.session.transfers.size() == 1);
    layer.answer(0, "yes");
    // The work has ended, but nobody has been told.
    layer.urls().data(request("/a"), layer.note("fourth"));
    CHECK(layer.told.empty());
    layer.run();
    CHECK(layer.told == Texts{"first: yes", "second: yes", "third: yes", "fourth: yes"});
    CHECK(layer.session.transfers.size() == 1);
}

TEST_CASE("an answer that has been given out serves nobody who asks later") {
    Layer layer;
    layer.urls().data(request("/a"),
                      [&](const Result<Answer>&) { layer.urls().data(request("/a"), layer.note("within")); });
    layer.answer(0, "old");
    layer.run();
    layer.urls().data(request("/a"), layer.note("after"));
    REQUIRE(layer.session.transfers.size() == 2);
    layer.answer(1, "new");
    layer.run();
    CHECK(layer.told == Texts{"within: new", "after: new"});
}

TEST_CASE("what differs in credentials, address, method, body or time-out is other work") {
    Layer layer;
    const URLRequest known = request("/a");
    std::vector<URLRequest> others{request("/a", "other"), request("/b"), known, known, known};
    others[2].httpMethod = "PUT";
    others[3].httpBody = "{}";
    others[4].timeoutInterval = 1s;
    layer.urls().data(known, layer.note("known"));
    for (const URLRequest& other : others) {
        layer.urls().data(other, layer.note("other"));
    }
    CHECK(layer.session.transfers.size() == 1 + others.size());
}

TEST_CASE("an upload is known by its file, not by the file's name") {
    Layer layer;
    const auto song = layer.fakes.home.file("song.m4a", "sound");
    std::filesystem::create_hard_link(song, layer.fakes.home.path() / "same.m4a");
    layer.urls().upload(request("/a"), song, layer.note("song"));
    layer.urls().upload(request("/a"), layer.fakes.home.path() / "same.m4a", layer.note("same"));
    CHECK(layer.session.transfers.size() == 1);
    std::filesystem::remove(song);
    layer.urls().upload(request("/a"), layer.fakes.home.file("song.m4a", "other"), layer.note("other"));
    CHECK(layer.session.transfers.size() == 2);
    layer.urls().data(request("/a"), layer.note("without a file"));
    CHECK(layer.session.transfers.size() == 3);
}

TEST_CASE("shared work is called off when the last who waits for it leaves, and not before") {
    Layer layer;
    const CancelAction first = layer.urls().data(request("/a"), layer.note("first"));
    const CancelAction second = layer.urls().data(request("/a"), layer.note("second"));
    first();
    CHECK_FALSE(layer.session.transfers.at(0)->isCancelled);
    first();
    CHECK_FALSE(layer.session.transfers.at(0)->isCancelled);
    second();
    CHECK(layer.session.transfers.at(0)->isCancelled);
    layer.answer(0, "too late");
    layer.urls().data(request("/a"), layer.note("afresh"));
    REQUIRE(layer.session.transfers.size() == 2);
    layer.answer(1, "new");
    layer.run();
    CHECK(layer.told == Texts{"afresh: new"});
}

TEST_CASE("who leaves between the end and his turn is not told") {
    Layer layer;
    CancelAction second;
    layer.urls().data(request("/a"), [&](const Result<Answer>&) {
        layer.told.emplace_back("first");
        second();
    });
    second = layer.urls().data(request("/a"), layer.note("second"));
    layer.urls().data(request("/a"), layer.note("third"));
    layer.answer(0, "yes");
    layer.run();
    CHECK(layer.told == Texts{"first", "third: yes"});
    CHECK_FALSE(layer.session.transfers.at(0)->isCancelled);
}

TEST_CASE("many who are resumed leave room between them for what others post") {
    Layer layer;
    constexpr int many = 100;
    int resumed = 0;
    for (int i = 0; i < many; ++i) {
        layer.urls().data(request("/a"), [&](const Result<Answer>&) { ++resumed; });
    }
    layer.run();
    layer.answer(0, "yes");
    REQUIRE(layer.fakes.mainActor.runTurn());
    std::optional<int> resumedBefore;
    layer.fakes.mainActor.post([&] { resumedBefore = resumed; });
    layer.run();
    CHECK(resumed == many);
    REQUIRE(resumedBefore);
    CHECK(*resumedBefore < many / 2);
}

TEST_CASE("waits of one round and one length are one; others are their own, and nobody waits too short") {
    Layer layer;
    Clock& clock = layer.shared.platform().clock;
    Texts woken;
    const auto sleep = [&](const char* name, std::chrono::seconds duration) {
        return clock.sleep(duration,
                           [&woken, name](const Result<std::monostate>&) { woken.emplace_back(name); });
    };
    sleep("a", 2s);
    sleep("b", 2s);
    sleep("c", 4s);
    layer.run();
    layer.fakes.clock.advance(1s);
    sleep("late", 2s);
    layer.run();
    CHECK(layer.fakes.clock.sleeps == std::vector<std::chrono::nanoseconds>{2s, 4s, 2s});
    layer.fakes.clock.advance(1s);
    layer.run();
    CHECK(woken == Texts{"a", "b"});
    layer.fakes.clock.advance(1s);
    layer.run();
    CHECK(woken == Texts{"a", "b", "late"});
}

TEST_CASE("the steps of a round read the credentials once, and those of the next anew") {
    Layer layer;
    layer.fakes.keychain.store("cadoraToken", "old");
    const KeychainQuery query{"com.norvelant.cadora.mac", "cadoraToken"};
    Texts read;
    const auto readInBackground = [&] {
        layer.shared.platform().background.runThen(
            [&] {
                std::string token;
                layer.keychain().copyMatching(query, &token);
                read.push_back(token);
                layer.fakes.keychain.store("cadoraToken", "new");
            },
            layer.fakes.mainActor, [] {});
    };
    readInBackground();
    readInBackground();
    layer.run();
    CHECK(read == Texts{"old", "old"});
    readInBackground();
    layer.run();
    CHECK(read == Texts{"old", "old", "new"});
    CHECK(layer.fakes.keychain.calls.size() == 2);
}

TEST_CASE("who is resumed reads the credentials of the round, but nothing that was changed since") {
    Layer layer;
    layer.fakes.keychain.store("cadoraToken", "old");
    const KeychainQuery query{"com.norvelant.cadora.mac", "cadoraToken"};
    Texts read;
    const auto readToken = [&] {
        std::string token;
        const bool isThere = layer.keychain().copyMatching(query, &token) == Keychain::success;
        read.push_back(isThere ? token : "none");
    };
    for (int i = 0; i < 2; ++i) {
        layer.urls().data(request("/a"), [&](const Result<Answer>&) { readToken(); });
    }
    layer.urls().data(request("/a"), [&](const Result<Answer>&) {
        readToken();
        layer.keychain().remove(query);
        readToken();
    });
    layer.answer(0, "yes");
    layer.run();
    CHECK(read == Texts{"old", "old", "old", "none"});
    // Outside of a round everybody reads for himself.
    layer.fakes.keychain.store("cadoraToken", "another");
    readToken();
    CHECK(read.back() == "another");
}

TEST_CASE("bytes that a file holds are not written again, unless it was this process that failed to") {
    Layer layer;
    FileManager& files = layer.shared.platform().fileManager;
    const auto file = layer.fakes.home.file("outbox.json", "[]");
    const auto identity = [&] { return files.identity(file); };
    const auto before = identity();
    // Whoever wrote that may not have brought it to the disk.
    files.writeAtomically(file, "[]");
    const auto written = identity();
    CHECK(written != before);
    files.writeAtomically(file, "[]");
    CHECK(identity() == written);
    // What counts is the file, not what was written last.
    layer.fakes.home.file("outbox.json", "[1]");
    files.writeAtomically(file, "[]");
    CHECK(test::readFile(file) == "[]");
    CHECK_THROWS_AS(files.writeAtomically(layer.fakes.home.path() / "none/outbox.json", "[]"), PlatformError);
}

TEST_CASE("an export begins when the round closes, so that no pass deletes what another has just made") {
    Layer layer;
    MediaFramework& media = layer.shared.platform().mediaFramework;
    FileManager& files = layer.shared.platform().fileManager;
    const auto source = layer.fakes.home.file("source.wav", "RIFF");
    const auto output = layer.fakes.home.file("recording.m4a", "stale");
    std::vector<std::unique_ptr<AssetExportSession>> sessions;
    int ends = 0;
    const auto begin = [&] {
        sessions.push_back(media.makeExportSession(source, "AVAssetExportPresetAppleM4A"));
        if (files.fileExists(output)) {
            files.removeItem(output);
        }
        sessions.back()->setOutputURL(output);
        sessions.back()->setOutputFileType("AVFileTypeAppleM4A");
        sessions.back()->exportAsynchronously([&] { ++ends; });
    };
    begin();
    begin();
    CHECK(layer.fakes.mediaFramework.calls.empty());
    layer.run();
    CHECK(layer.fakes.mediaFramework.calls == Texts{"export source.wav"});
    CHECK(ends == 2);
    CHECK(test::readFile(output) == "m4a");
}

TEST_CASE("an output that is deleted while its export runs is made afresh for who asks afterwards") {
    Layer layer;
    MediaFramework& media = layer.shared.platform().mediaFramework;
    const auto source = layer.fakes.home.file("item/source.wav", "RIFF");
    const auto output = layer.fakes.home.file("item/recording.m4a", "");
    layer.fakes.mediaFramework.holdsExports = true;
    std::vector<std::unique_ptr<AssetExportSession>> sessions;
    const auto begin = [&] {
        sessions.push_back(media.makeExportSession(source, "AVAssetExportPresetAppleM4A"));
        sessions.back()->setOutputURL(output);
        sessions.back()->setOutputFileType("AVFileTypeAppleM4A");
        sessions.back()->exportAsynchronously([] {});
        layer.run();
    };
    begin();
    begin();
    CHECK(layer.fakes.mediaFramework.calls.size() == 1);
    layer.shared.platform().fileManager.removeItem(output);
    begin();
    CHECK(layer.fakes.mediaFramework.calls.size() == 2);
    begin();
    CHECK(layer.fakes.mediaFramework.calls.size() == 2);
    layer.fakes.mediaFramework.finishExports();
    layer.run();
    for (const auto& session : sessions) {
        CHECK(session->status() == AssetExportSession::completed);
    }
}
