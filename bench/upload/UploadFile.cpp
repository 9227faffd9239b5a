// Uploads one file through the program's URL session, for bench/upload/run to measure, and prints the
// greatest amount of memory that it held, in KiB.
#include "base/Error.h"
#include "base/MainActor.h"
#include "hosts/linux/network/CurlURLSession.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace {

class BlockingMainActor : public cadora::MainActor {
public:
    ~BlockingMainActor() override { destroyTasks(); }

    void post(std::function<void()> job) override {
        const std::lock_guard guard(mutex_);
        jobs_.push_back(std::move(job));
        posted_.notify_one();
    }

    void runJob() {
        std::unique_lock lock(mutex_);
        posted_.wait(lock, [this] { return !jobs_.empty(); });
        const auto job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        job();
    }

private:
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> jobs_;
};

} // namespace

int main(int count, char** texts) {
    using namespace cadora;
    if (count != 3 && count != 4) {
        std::fputs("Usage: bench-upload FILE URL [CERTIFICATE-AUTHORITY]\n", stderr);
        return 2;
    }
    const auto url = URL::parse(texts[2]);
    if (!url) {
        std::fputs("bench-upload: that is no URL\n", stderr);
        return 2;
    }
    BlockingMainActor actor;
    CurlURLSession::Configuration configuration;
    if (count == 4) {
        configuration.certificateAuthorityFile = texts[3];
    }
    CurlURLSession session(actor, configuration);
    URLRequest request{*url};
    request.httpMethod = "PUT";

    std::optional<Result<URLSession::Answer>> result;
    session.upload(request, texts[1], [&](Result<URLSession::Answer> ended) { result = std::move(ended); });
    while (!result) {
        actor.runJob();
    }
    if (const auto* error = std::get_if<std::exception_ptr>(&*result)) {
        std::fprintf(stderr, "bench-upload: %s\n", errorText(*error).c_str());
        return 1;
    }
    const auto status = std::get<URLSession::Answer>(*result).response.statusCode;
    if (status != 200) {
        std::fprintf(stderr, "bench-upload: status %lld\n", static_cast<long long>(status.value_or(-1)));
        return 1;
    }
    // Not getrusage(), which counts the program that started this one.
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            std::printf("%ld\n", std::strtol(line.c_str() + 6, nullptr, 10));
        }
    }
    return 0;
}
