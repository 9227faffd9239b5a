#include "hosts/linux/media/worker/Crew.h"

#include <utility>

namespace cadora {

Crew::Crew(int members) {
    try {
        for (int member = 0; member < members; ++member) {
            threads_.emplace_back([this, member] { serve(member); });
        }
    } catch (...) {
        dismiss();
        throw;
    }
}

Crew::~Crew() {
    awaitEnd();
    dismiss();
}

void Crew::dismiss() {
    {
        const std::lock_guard lock(mutex_);
        dismissed_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

void Crew::begin(Work work) {
    const std::lock_guard lock(mutex_);
    work_ = std::move(work);
    busy_ = members();
    ++works_;
    changed_.notify_all();
}

void Crew::awaitEnd() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return busy_ == 0; });
}

void Crew::serve(int member) {
    std::unique_lock lock(mutex_);
    for (unsigned served = 0;;) {
        changed_.wait(lock, [&] { return dismissed_ || works_ != served; });
        if (works_ == served) {
            return;
        }
        served = works_;
        lock.unlock();
        work_(member);
        lock.lock();
        if (--busy_ == 0) {
            changed_.notify_all();
        }
    }
}

} // namespace cadora
