#pragma once

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace cadora {

// Work that must not overlap, done one piece at a time on the callers' own threads.
class SerialQueue {
public:
    explicit SerialQueue(std::string label) : label_(std::move(label)) {}

    const std::string& label() const { return label_; }

    // Runs `work` once no other piece runs. A piece that enters its own queue again would wait for itself for
    // ever: a programming error, which ends the program and names the queue.
    template <class Work> auto sync(Work work) {
        if (owner_ == std::this_thread::get_id()) {
            std::fprintf(stderr, "[Cadora Helper] %s: entered from within itself\n", label_.c_str());
            std::abort();
        }
        const std::lock_guard guard(mutex_);
        const Ownership ownership(owner_);
        return work();
    }

private:
    class Ownership {
    public:
        explicit Ownership(std::atomic<std::thread::id>& owner) : owner_(owner) {
            owner_ = std::this_thread::get_id();
        }
        Ownership(const Ownership&) = delete;
        Ownership& operator=(const Ownership&) = delete;
        ~Ownership() { owner_ = std::thread::id(); }

    private:
        std::atomic<std::thread::id>& owner_;
    };

    std::string label_;
    std::mutex mutex_;
    std::atomic<std::thread::id> owner_;
};

} // namespace cadora
