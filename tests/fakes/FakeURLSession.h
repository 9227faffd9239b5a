#pragma once

#include "base/MainActor.h"
#include "platform/URLSession.h"

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

// Answers requests by their path, each path from its own script, the last entry of which repeats. An answer
// arrives in a later turn of the main actor, like a real one.
class FakeURLSession : public URLSession {
public:
    struct Sent {
        URLRequest request;
        // Of an upload alone.
        std::filesystem::path file;
    };

    explicit FakeURLSession(MainActor& actor) : actor_(actor) {}

    std::vector<Sent> sent;
    int cancelled = 0;

    void answer(const std::string& pathPrefix, std::int64_t status, const std::string& body = "") {
        scripts_[pathPrefix].push_back(Answer{body, {status}});
    }
    void answerNotHTTP(const std::string& pathPrefix) { scripts_[pathPrefix].push_back(Answer{"", {}}); }
    void fail(const std::string& pathPrefix, std::exception_ptr error) {
        scripts_[pathPrefix].push_back(std::move(error));
    }
    // Requests of this prefix get no answer.
    void stall(const std::string& pathPrefix) { stalled_.push_back(pathPrefix); }
    // Forgets the answers scripted so far.
    void reset() {
        scripts_.clear();
        stalled_.clear();
    }

    std::size_t count(const std::string& pathPrefix) const {
        std::size_t matches = 0;
        for (const Sent& entry : sent) {
            matches += path(entry.request).rfind(pathPrefix, 0) == 0 ? 1 : 0;
        }
        return matches;
    }

    CancelAction data(URLRequest request, Completion<Answer> completion) override {
        return send({std::move(request), {}}, std::move(completion));
    }
    CancelAction upload(URLRequest request, std::filesystem::path fromFile,
                        Completion<Answer> completion) override {
        return send({std::move(request), std::move(fromFile)}, std::move(completion));
    }

    static std::string path(const URLRequest& request) {
        const std::string& text = request.url.text();
        const auto host = text.find("//");
        const auto slash = text.find('/', host == std::string::npos ? 0 : host + 2);
        return slash == std::string::npos ? "" : text.substr(slash);
    }

private:
    CancelAction send(Sent entry, Completion<Answer> completion) {
        const std::string target = path(entry.request);
        sent.push_back(std::move(entry));
        for (const std::string& prefix : stalled_) {
            if (target.rfind(prefix, 0) == 0) {
                return [this] { ++cancelled; };
            }
        }
        for (auto& [prefix, script] : scripts_) {
            if (target.rfind(prefix, 0) == 0) {
                Result<Answer> result = script.front();
                if (script.size() > 1) {
                    script.pop_front();
                }
                actor_.post([completion, result] { completion(result); });
                return [this] { ++cancelled; };
            }
        }
        actor_.post([completion] {
            completion(failure<Answer>(PlatformError("fake", -1, "no answer is scripted for this request")));
        });
        return [this] { ++cancelled; };
    }

    MainActor& actor_;
    std::map<std::string, std::deque<Result<Answer>>> scripts_;
    std::vector<std::string> stalled_;
};

} // namespace cadora::test
