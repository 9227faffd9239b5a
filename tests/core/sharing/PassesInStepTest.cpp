#include "app/ServiceProvider.h"
#include "fakes/RandomWorld.h"
#include "outbox/OutboxStore.h"
#include "sharing/SharedPlatform.h"
#include "upload/UploadQueue.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

using namespace cadora;
using test::FakePasteboard;
using test::RandomWorld;

namespace {

// Shares what is under way, as the layer does, but tells everybody of an end the moment it comes: what passes
// that drift apart make of the same work. The control of the tests below.
class SharingWithoutRounds : public URLSession, public MediaFramework {
public:
    SharingWithoutRounds(URLSession& session, MediaFramework& media) : session_(session), media_(media) {}

    CancelAction data(URLRequest request, Completion<Answer> completion) override {
        const std::string key = request.url.text() + request.httpBody;
        return share<Answer>(answers_, key, std::move(completion),
                             [&](Completion<Answer> ended) { session_.data(request, std::move(ended)); });
    }
    CancelAction upload(URLRequest request, std::filesystem::path fromFile,
                        Completion<Answer> completion) override {
        return share<Answer>(
            answers_, request.url.text(), std::move(completion),
            [&](Completion<Answer> ended) { session_.upload(request, fromFile, std::move(ended)); });
    }
    CancelAction loadDuration(std::filesystem::path source, Completion<double> completion) override {
        return share<double>(
            durations_, source.string(), std::move(completion),
            [&](Completion<double> ended) { media_.loadDuration(source, std::move(ended)); });
    }
    std::unique_ptr<AssetExportSession> makeExportSession(std::filesystem::path source,
                                                          std::string presetName) override {
        return std::make_unique<Session>(*this, media_.makeExportSession(source, std::move(presetName)),
                                         source.string());
    }

private:
    template <class T> using Waiting = std::map<std::string, std::vector<Completion<T>>>;

    template <class T, class Begin>
    CancelAction share(Waiting<T>& waiting, const std::string& key, Completion<T> completion, Begin begin) {
        const bool isUnderWay = waiting.contains(key);
        waiting[key].push_back(std::move(completion));
        if (!isUnderWay) {
            begin([&waiting, key](const Result<T>& result) {
                const auto users = std::move(waiting.extract(key).mapped());
                for (const auto& user : users) {
                    user(result);
                }
            });
        }
        return nullptr;
    }

    class Session : public AssetExportSession {
    public:
        Session(SharingWithoutRounds& sharing, std::shared_ptr<AssetExportSession> own, std::string key)
            : sharing_(sharing), own_(std::move(own)), key_(std::move(key)) {}
        void setOutputURL(std::filesystem::path output) override { own_->setOutputURL(output); }
        void setOutputFileType(std::string type) override { own_->setOutputFileType(type); }
        void exportAsynchronously(std::function<void()> handler) override {
            sharing_.share<int>(
                sharing_.exports_, key_,
                [this, handler](const Result<int>& result) {
                    status_ = std::get<int>(result);
                    handler();
                },
                [&](Completion<int> ended) {
                    own_->exportAsynchronously([own = own_, ended] { ended(own->status()); });
                });
        }
        void cancelExport() override {}
        int status() const override { return status_; }
        std::optional<PlatformError> error() const override { return std::nullopt; }

    private:
        SharingWithoutRounds& sharing_;
        std::shared_ptr<AssetExportSession> own_;
        std::string key_;
        int status_ = exporting;
    };

    URLSession& session_;
    MediaFramework& media_;
    Waiting<Answer> answers_;
    Waiting<double> durations_;
    Waiting<int> exports_;
};

enum class Below { none, sharingWithoutRounds, rounds };

// One send of some files, in a world of its own.
class Send {
public:
    Send(std::uint64_t seed, Below below) : world(seed) {
        world.keychain.store("cadoraToken", "t");
        if (below == Below::rounds) {
            shared_.emplace(world.platform);
            Platform::install(&shared_->platform());
        } else if (below == Below::sharingWithoutRounds) {
            control_.emplace(world.platform.urlSession, world.platform.mediaFramework);
            const Platform& p = world.platform;
            controlled_.emplace(Platform{p.mainActor, p.background, p.clock, p.fileManager, p.random,
                                         p.systemLog, p.userDefaults, p.keychain, *control_, *control_,
                                         p.notificationCenter, p.application, p.webAuthentication,
                                         p.workspace, p.processLauncher});
            Platform::install(&*controlled_);
        } else {
            Platform::install(&world.platform);
        }
        store.emplace();
        queue.emplace(*store);
        intake.emplace(*queue);
    }
    ~Send() { Platform::install(nullptr); }

    void send(int count, std::optional<int> rubbish = std::nullopt) {
        std::vector<URL> urls;
        for (int i = 0; i < count; ++i) {
            const std::string path = "/music/" + std::to_string(i) + ".wav";
            world.files.put(path, i == rubbish ? "rubbish" : "sound");
            urls.push_back(URL::file(path));
        }
        std::string error;
        intake->sendToCadora(FakePasteboard(urls), std::nullopt, error);
        REQUIRE(error.empty());
        // Staging is one job; what follows looks at the items before any pass has begun.
        REQUIRE(world.actor.jobs.size() == 1);
        const auto staging = std::move(world.actor.jobs.front());
        world.actor.jobs.pop_front();
        staging();
        for (const OutboxItem& item : store->load()) {
            ids.push_back(item.shortID);
            world.service[item.shortID];
        }
    }

    // How often it said that something could not be sent.
    long deniedPosts() const {
        const auto notices = world.notificationCenter.texts();
        return std::count_if(notices.begin(), notices.end(),
                             [](const std::string& notice) { return notice.starts_with("Couldn’t"); });
    }

    // Everything that is wrong about how it ended, in words; empty when nothing is.
    std::string problems(int passes) {
        std::string text;
        std::map<std::string, int> notices;
        for (const std::string& notice : world.notificationCenter.texts()) {
            ++notices[notice];
        }
        std::map<std::string, OutboxState> left;
        for (const OutboxItem& item : store->load()) {
            left[item.shortID] = item.state;
        }
        for (std::size_t i = 0; i < ids.size(); ++i) {
            const auto& item = world.service.at(ids[i]);
            const std::string name = std::to_string(i) + ".wav";
            const auto note = [&](const std::string& problem) { text += name + ": " + problem + "; "; };
            const int sent = notices["Sent to Cadora ✓ | " + name + " — private"];
            const int failed = notices["Couldn’t send to Cadora | " + name];
            if (item.isPost && (left.contains(ids[i]) || failed > 0 || sent != passes)) {
                note("a post, but told " + std::to_string(sent) + " times, denied " + std::to_string(failed));
            }
            if (!item.isPost && (!left.contains(ids[i]) || sent > 0)) {
                note("no post, but gone or told");
            }
            if (item.presigned > 1 || item.synced > 1) {
                note("presigned " + std::to_string(item.presigned) + ", synced " +
                     std::to_string(item.synced));
            }
        }
        return text;
    }

    RandomWorld world;

private:
    std::optional<SharedPlatform> shared_;
    std::optional<SharingWithoutRounds> control_;
    std::optional<Platform> controlled_;

public:
    std::optional<OutboxStore> store;
    std::optional<UploadQueue> queue;
    std::optional<ServiceProvider> intake;
    std::vector<std::string> ids;
};

// What is wrong after a send of 2 to 6 files that all become posts.
std::string plainSend(std::uint64_t seed, Below below) {
    Send scene(seed, below);
    const int count = 2 + static_cast<int>(seed % 5);
    scene.send(count);
    std::string problems = scene.world.time.run(scene.world.actor) ? "" : "it never ends; ";
    problems += scene.problems(count);
    for (const auto& [id, item] : scene.world.service) {
        if (item.presigned != 1 || item.put != 1 || item.synced != 1) {
            problems += std::to_string(item.presigned) + " presigned, " + std::to_string(item.put) +
                        " put, " + std::to_string(item.synced) + " synced; ";
        }
    }
    return problems;
}

int failures(int seeds, Below below) {
    int count = 0;
    for (int seed = 1; seed <= seeds; ++seed) {
        count += plainSend(static_cast<std::uint64_t>(seed), below).empty() ? 0 : 1;
    }
    return count;
}

} // namespace

TEST_CASE("however long each step takes, several files sent at once cost one of everything each") {
    for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
        CAPTURE(seed);
        REQUIRE(plainSend(seed, Below::rounds) == "");
    }
}

TEST_CASE("without rounds, passes that share their work drift apart all the same, and deny posts") {
    CHECK(failures(50, Below::none) == 50);
    CHECK(failures(50, Below::sharingWithoutRounds) > 40);
}

TEST_CASE("an upload that is refused for a while is tried again once for all, and becomes a post") {
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        CAPTURE(seed);
        Send scene(seed, Below::rounds);
        scene.send(4);
        for (const std::string& id : scene.ids) {
            scene.world.service[id].refusals = static_cast<int>(scene.world.time.upTo(2));
        }
        const auto refusals = scene.world.service;
        REQUIRE(scene.world.time.run(scene.world.actor));
        REQUIRE(scene.problems(4) == "");
        for (const std::string& id : scene.ids) {
            REQUIRE(scene.world.service[id].put == 1 + refusals.at(id).refusals);
        }
    }
}

TEST_CASE("a rubbish file and a refused post among others fail, each once, and nothing else does") {
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        CAPTURE(seed);
        Send scene(seed, Below::rounds);
        scene.send(5, 1);
        scene.world.service[scene.ids[3]].syncFails = true;
        REQUIRE(scene.world.time.run(scene.world.actor));
        REQUIRE(scene.problems(5) == "");
        const auto left = scene.store->load();
        REQUIRE(left.size() == 2);
        REQUIRE(left[0].shortID == scene.ids[1]);
        REQUIRE(left[1].shortID == scene.ids[3]);
        for (const OutboxItem& item : left) {
            REQUIRE(item.state == OutboxState::failed);
            REQUIRE(item.attempts == 1);
        }
        REQUIRE(scene.world.service[scene.ids[1]].presigned == 0);
    }
}

TEST_CASE("signing out in the middle leaves no post in the outbox, and sends nothing twice") {
    int signedOutInTime = 0;
    for (std::uint64_t seed = 1; seed <= 500; ++seed) {
        CAPTURE(seed);
        Send scene(seed, Below::rounds);
        scene.send(4);
        scene.world.time.after(scene.world.time.upTo(100'000), [&] {
            scene.world.actor.post([&] {
                Keychain& keychain = Platform::current().keychain;
                keychain.remove({"com.norvelant.cadora.mac", "cadoraToken"});
            });
        });
        REQUIRE(scene.world.time.run(scene.world.actor));
        const auto left = scene.store->load();
        signedOutInTime += left.empty() ? 0 : 1;
        for (const OutboxItem& item : left) {
            REQUIRE(item.state == OutboxState::deferredAuth);
            REQUIRE_FALSE(scene.world.service[item.shortID].isPost);
        }
        for (const std::string& id : scene.ids) {
            const auto& item = scene.world.service[id];
            REQUIRE(item.presigned <= 1);
            REQUIRE(item.put <= 1);
            REQUIRE(item.synced <= 1);
        }
    }
    CHECK(signedOutInTime > 100);
}

TEST_CASE("killed in the middle and started again, it makes each file one post and denies none") {
    int cutShort = 0;
    for (std::uint64_t seed = 1; seed <= 500; ++seed) {
        CAPTURE(seed);
        auto killed = std::make_unique<Send>(seed, Below::rounds);
        killed->send(4);
        REQUIRE(killed->world.time.run(killed->world.actor, killed->world.time.upTo(200'000)));
        killed->world.actor.end();
        REQUIRE(killed->deniedPosts() == 0);
        const auto files = std::move(killed->world.files);
        const auto service = std::move(killed->world.service);
        killed.reset();

        Send next(seed, Below::rounds);
        next.world.files = files;
        next.world.service = service;
        cutShort += next.store->load().empty() ? 0 : 1;
        next.queue->kick();
        REQUIRE(next.world.time.run(next.world.actor));
        REQUIRE(next.store->load().empty());
        REQUIRE(next.deniedPosts() == 0);
        REQUIRE(next.world.service.size() == 4);
        for (const auto& [id, item] : next.world.service) {
            REQUIRE(item.isPost);
            // What was under way is done again, by the one pass of the start.
            REQUIRE(item.presigned <= 2);
            REQUIRE(item.put <= 2);
            REQUIRE(item.synced <= 2);
        }
    }
    CHECK(cutShort > 100);
}

TEST_CASE("the index is written once for each change of an item, however many passes write it") {
    Send scene(1, Below::rounds);
    scene.send(6);
    const int staged = scene.world.files.writes["outbox.json"];
    REQUIRE(scene.world.time.run(scene.world.actor));
    CHECK(staged == 6);
    CHECK(scene.world.files.writes["outbox.json"] == staged + 6 * 3);
}
