#pragma once

#include "fakes/Trace.h"
#include "platform/Application.h"
#include "platform/ProcessLauncher.h"
#include "platform/RandomSource.h"
#include "platform/SystemLog.h"
#include "platform/UserNotificationCenter.h"
#include "platform/Workspace.h"

#include <deque>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Fakes that do no more than remember what they were asked.
namespace cadora::test {

class RecordingSystemLog : public SystemLog {
public:
    std::vector<std::string> lines;
    void log(const std::string& line) override { lines.push_back(line); }
};

class RecordingNotificationCenter : public UserNotificationCenter {
public:
    Trace trace;
    std::vector<unsigned> authorizations;
    std::vector<UserNotificationRequest> requests;
    // The user has forbidden what is added.
    bool isDenied = false;

    void requestAuthorization(unsigned options) override {
        trace.add("requestAuthorization");
        authorizations.push_back(options);
    }
    void add(UserNotificationRequest request) override {
        if (isDenied) {
            return;
        }
        trace.add("notify " + request.title);
        requests.push_back(std::move(request));
    }

    // Title and body in one, for comparing.
    std::vector<std::string> texts() const {
        std::vector<std::string> texts;
        texts.reserve(requests.size());
        for (const auto& request : requests) {
            texts.push_back(request.title + " | " + request.body);
        }
        return texts;
    }
};

class FakePasteboard : public Pasteboard {
public:
    explicit FakePasteboard(std::vector<URL> urls) : urls_(std::move(urls)) {}
    std::vector<URL> readURLs() const override { return urls_; }

private:
    std::vector<URL> urls_;
};

class RecordingWorkspace : public Workspace {
public:
    Trace trace;
    std::vector<std::string> openedURLs;
    std::vector<std::filesystem::path> recycledItems;
    // Kept for the test to call.
    std::function<void()> recycleHandler;

    void openURL(const URL& url) override {
        trace.add("openURL " + url.text());
        openedURLs.push_back(url.text());
    }
    void recycle(const std::filesystem::path& item, std::function<void()> handler) override {
        trace.add("recycle " + item.string());
        recycledItems.push_back(item);
        recycleHandler = std::move(handler);
    }
};

class RecordingProcessLauncher : public ProcessLauncher {
public:
    Trace trace;
    std::set<std::filesystem::path> executables;
    std::vector<std::string> commands;

    bool isExecutableFile(const std::filesystem::path& path) override { return executables.contains(path); }
    void run(const std::filesystem::path& executable, const std::vector<std::string>& arguments) override {
        std::string command = executable.string();
        for (const auto& argument : arguments) {
            command += " " + argument;
        }
        trace.add("run " + command);
        commands.push_back(command);
    }
};

// A reproducible sequence (splitmix64); values put into `next` first come out first.
class SequenceRandomSource : public RandomSource {
public:
    std::deque<std::uint64_t> scripted;
    int draws = 0;

    std::uint64_t next() override {
        ++draws;
        if (!scripted.empty()) {
            const std::uint64_t value = scripted.front();
            scripted.pop_front();
            return value;
        }
        std::uint64_t z = state_ += 0x9E3779B97F4A7C15U;
        z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31U);
    }

private:
    std::uint64_t state_ = 1;
};

} // namespace cadora::test
