#pragma once

#include "api/WireTypes.h"
#include "base/MainActor.h"
#include "fakes/FakeApplication.h"
#include "fakes/FakeKeychain.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/FakeWebAuthentication.h"
#include "fakes/MemoryFileManager.h"
#include "fakes/Recorders.h"
#include "platform/Platform.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <queue>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

// Virtual time, in which a main actor runs its jobs and other threads do something after a while. How long
// anything takes is chance, the same for the same seed.
class RandomTime {
public:
    explicit RandomTime(std::uint64_t seed) : chance_(seed) {}

    class Actor : public MainActor {
    public:
        ~Actor() override { destroyTasks(); }
        void post(std::function<void()> job) override { jobs.push_back(std::move(job)); }
        // As when the program is killed.
        void end() {
            destroyTasks();
            jobs.clear();
        }

        std::deque<std::function<void()>> jobs;
    };

    std::int64_t upTo(std::int64_t most) {
        return std::uniform_int_distribution<std::int64_t>(0, most)(chance_);
    }
    // Mostly short, now and then a hundred or a thousand times as long.
    std::int64_t aWhile() {
        const std::int64_t kind = upTo(9);
        return upTo(kind < 6 ? 10 : kind < 9 ? 1000 : 100'000);
    }
    void pass(std::int64_t duration) { now_ += duration; }

    // On another thread.
    void after(std::int64_t delay, std::function<void()> event) {
        events_.push({now_ + delay, ++lastEvent_, std::move(event)});
    }

    // Until nothing happens any more, or the time has come. False when neither comes to pass.
    bool run(Actor& actor, std::int64_t until = std::numeric_limits<std::int64_t>::max()) {
        for (int step = 0; step < 1'000'000; ++step) {
            if (now_ >= until) {
                return true;
            }
            if (!events_.empty() && (actor.jobs.empty() || events_.top().time <= now_)) {
                const auto event = events_.top();
                events_.pop();
                now_ = std::max(now_, event.time);
                event.happen();
            } else if (!actor.jobs.empty()) {
                const auto job = std::move(actor.jobs.front());
                actor.jobs.pop_front();
                job();
                pass(upTo(20));
            } else {
                return true;
            }
        }
        return false;
    }

private:
    struct Event {
        std::int64_t time;
        std::int64_t number;
        std::function<void()> happen;

        bool operator<(const Event& other) const {
            return std::pair(time, number) > std::pair(other.time, other.number);
        }
    };

    std::mt19937_64 chance_;
    std::int64_t now_ = 0;
    std::int64_t lastEvent_ = 0;
    std::priority_queue<Event> events_;
};

// A platform in which every port takes its random time, and a service that counts what it is asked.
class RandomWorld {
public:
    explicit RandomWorld(std::uint64_t seed) : time(seed) {}
    RandomWorld(const RandomWorld&) = delete;
    RandomWorld& operator=(const RandomWorld&) = delete;

    struct Counts {
        int presigned = 0;
        int put = 0;
        int synced = 0;
        // How often its upload is still to be refused with 503.
        int refusals = 0;
        bool syncFails = false;
        bool isPost = false;
    };

    RandomTime time;
    MemoryFileManager files;
    std::map<std::string, Counts> service; // by the item's identifier

    class Keychain : public FakeKeychain {
    public:
        explicit Keychain(RandomTime& randomTime) : time_(randomTime) {}
        Status copyMatching(const KeychainQuery& query, std::string* data) override {
            time_.pass(time_.upTo(30));
            return FakeKeychain::copyMatching(query, data);
        }

    private:
        RandomTime& time_;
    };
    Keychain keychain{time};
    RecordingNotificationCenter notificationCenter;

private:
    class Background : public BackgroundExecutor {
    public:
        explicit Background(RandomWorld& world) : world_(world) {}
        void run(std::function<void()> job) override {
            world_.time.after(world_.time.aWhile(), std::move(job));
        }

    private:
        RandomWorld& world_;
    };

    class WorldClock : public Clock {
    public:
        explicit WorldClock(RandomWorld& world) : world_(world) {}
        Date now() override { return {1}; }
        CancelAction sleep(std::chrono::nanoseconds duration,
                           Completion<std::monostate> completion) override {
            const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
            world_.time.after(microseconds + world_.time.upTo(500), [this, completion] {
                world_.actor.post([completion] { completion(std::monostate{}); });
            });
            return nullptr;
        }

    private:
        RandomWorld& world_;
    };

    class Session : public URLSession {
    public:
        explicit Session(RandomWorld& world) : world_(world) {}
        CancelAction data(URLRequest request, Completion<Answer> completion) override {
            world_.time.after(world_.time.aWhile(),
                              [this, request, completion] { answer(completion, world_.serve(request)); });
            return nullptr;
        }
        CancelAction upload(URLRequest request, std::filesystem::path fromFile,
                            Completion<Answer> completion) override {
            if (!world_.files.fileExists(fromFile)) {
                answer(completion, failure<Answer>(PlatformError("world", 2, "there is no such file")));
                return nullptr;
            }
            return data(std::move(request), std::move(completion));
        }

    private:
        void answer(const Completion<Answer>& completion, const Result<Answer>& result) {
            world_.time.after(world_.time.aWhile(), [this, completion, result] {
                world_.actor.post([completion, result] { completion(result); });
            });
        }
        RandomWorld& world_;
    };

    class Media : public MediaFramework {
    public:
        explicit Media(RandomWorld& world) : world_(world) {}

        CancelAction loadDuration(std::filesystem::path source, Completion<double> completion) override {
            const Result<double> result =
                world_.isSound(source) ? Result<double>(12.5)
                                       : failure<double>(PlatformError("world", 1, "it is not a sound"));
            world_.time.after(world_.time.aWhile(), [this, completion, result] {
                world_.actor.post([completion, result] { completion(result); });
            });
            return nullptr;
        }

        std::unique_ptr<AssetExportSession> makeExportSession(std::filesystem::path source,
                                                              std::string) override {
            return std::make_unique<Export>(world_, std::move(source));
        }

    private:
        class Export : public AssetExportSession {
        public:
            Export(RandomWorld& world, std::filesystem::path source)
                : world_(world), source_(std::move(source)) {}
            void setOutputURL(std::filesystem::path output) override { output_ = std::move(output); }
            void setOutputFileType(std::string) override {}
            void exportAsynchronously(std::function<void()> handler) override {
                const bool works = world_.isSound(source_);
                *status_ = exporting;
                // The output is there some time before anybody hears of it.
                world_.time.after(world_.time.aWhile(), [&world = world_, status = status_, output = output_,
                                                         works, handler] {
                    const bool isWritten = works && world.files.fileExists(output.parent_path());
                    if (isWritten) {
                        world.files.put(output, "m4a");
                    }
                    world.time.after(world.time.aWhile(), [&world, status, isWritten, handler] {
                        world.actor.post([status, isWritten, handler] {
                            *status = isWritten ? completed : failed;
                            handler();
                        });
                    });
                });
            }
            void cancelExport() override {}
            int status() const override { return *status_; }
            std::optional<PlatformError> error() const override { return std::nullopt; }

        private:
            RandomWorld& world_;
            std::filesystem::path source_;
            std::filesystem::path output_;
            std::shared_ptr<int> status_ = std::make_shared<int>(unknown);
        };
        RandomWorld& world_;
    };

    bool isSound(const std::filesystem::path& source) {
        const auto found = files.files.find(source);
        return found != files.files.end() && found->second.bytes == "sound";
    }

    URLSession::Answer serve(const URLRequest& request) {
        const std::string& url = request.url.text();
        if (const auto store = url.find("/store/"); store != std::string::npos) {
            Counts& item = service[url.substr(store + 7, url.find('?') - store - 7)];
            ++item.put;
            return {"", {item.refusals-- > 0 ? 503 : 200}};
        }
        if (!request.headers.value("Authorization")) {
            return {"", {401}};
        }
        if (url.ends_with("/api/posts/presign")) {
            const std::string uuid = PresignRequest::decode(request.httpBody).uuid;
            ++service[uuid].presigned;
            const std::string address =
                "https://store.example/store/" + uuid + "?signature=" + std::to_string(++signatures_);
            return {R"({"urls":{"audio":")" + address + R"("}})", {200}};
        }
        Counts& item = service[SyncRequest::decode(request.httpBody).uuid];
        ++item.synced;
        if (item.syncFails) {
            return {"", {500}};
        }
        item.isPost = true;
        return {"{}", {200}};
    }

    int signatures_ = 0;
    Background background_{*this};
    WorldClock clock_{*this};
    Session session_{*this};
    Media media_{*this};
    SequenceRandomSource random_;
    FakeUserDefaults userDefaults_;
    FakeApplication application_;
    FakeWebAuthentication webAuthentication_;
    RecordingWorkspace workspace_;
    RecordingProcessLauncher processLauncher_;

public:
    RecordingSystemLog systemLog;
    // The last to be made and the first to go, as tasks may still wait.
    RandomTime::Actor actor;

    Platform platform{actor,
                      background_,
                      clock_,
                      files,
                      random_,
                      systemLog,
                      userDefaults_,
                      keychain,
                      session_,
                      media_,
                      notificationCenter,
                      application_,
                      webAuthentication_,
                      workspace_,
                      processLauncher_};
};

} // namespace cadora::test
