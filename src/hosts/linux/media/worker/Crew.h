#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace cadora {

// Threads that wait for work. They are made before the sandbox closes, inside which there can be no others.
class Crew {
public:
    // Throws std::system_error if the system has no more threads.
    explicit Crew(int members);
    ~Crew(); // waits for the work to end
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    int members() const { return static_cast<int>(threads_.size()); }

    // Every member carries out the work once, with its number from 0 on; it must not throw. One work at a
    // time.
    using Work = std::function<void(int member)>;
    void begin(Work work);
    void awaitEnd();

private:
    void serve(int member);
    void dismiss();

    std::mutex mutex_;
    std::condition_variable changed_;
    Work work_;
    unsigned works_ = 0; // how many were begun
    int busy_ = 0;
    bool dismissed_ = false;
    std::vector<std::thread> threads_;
};

} // namespace cadora
