#pragma once

#include "base/Completion.h"
#include "sharing/Rounds.h"

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace cadora {

// One piece of work and those who wait for it. It is called off when the last of them leaves. Main actor
// only.
template <class T> class SharedWork : public std::enable_shared_from_this<SharedWork<T>> {
public:
    explicit SharedWork(std::shared_ptr<Rounds> rounds) : rounds_(std::move(rounds)) {}

    // Called when nobody may join any more.
    std::function<void()> onRetirement;

    int join(Completion<T> completion) {
        users_.emplace(++lastUser_, std::move(completion));
        return lastUser_;
    }

    void leave(int user) {
        if (users_.erase(user) != 0 && users_.empty() && !result_) {
            callOff();
        }
    }

    bool isSoleUser(int user) const { return users_.size() == 1 && users_.contains(user); }
    bool hasBegun() const { return hasBegun_; }

    // Asks the platform to stop. An end that it still tells is told to those who have stayed.
    void callOff() {
        retire();
        if (cancel_ && !std::exchange(isCalledOff_, true)) {
            cancel_();
        }
    }

    void begin(const Operation<T>& operation) {
        if (users_.empty()) {
            return;
        }
        hasBegun_ = true;
        auto cancel = operation([weak = this->weak_from_this()](Result<T> result) {
            if (const auto self = weak.lock()) {
                self->end(std::move(result));
            }
        });
        if (!result_) {
            cancel_ = std::move(cancel);
        }
    }

private:
    void retire() {
        if (const auto retirement = std::exchange(onRetirement, nullptr)) {
            retirement();
        }
    }

    void end(Result<T> result) {
        if (result_) {
            return;
        }
        result_ = std::move(result);
        cancel_ = nullptr;
        rounds_->deliver([self = this->shared_from_this()] { return self->resumptions(); });
    }

    std::vector<Rounds::Job> resumptions() {
        retire();
        std::vector<Rounds::Job> jobs;
        jobs.reserve(users_.size());
        for (const auto& entry : users_) {
            jobs.emplace_back([self = this->shared_from_this(), user = entry.first] { self->tell(user); });
        }
        return jobs;
    }

    void tell(int user) {
        if (const auto told = users_.extract(user)) {
            told.mapped()(*result_);
        }
    }

    std::shared_ptr<Rounds> rounds_;
    std::map<int, Completion<T>> users_;
    int lastUser_ = 0;
    bool hasBegun_ = false;
    bool isCalledOff_ = false;
    // Kept until the end: it holds what the platform needs to tell that.
    CancelAction cancel_;
    std::optional<Result<T>> result_;
};

// A place among those who wait for a piece of work.
template <class T> class Share {
public:
    Share() = default;
    Share(std::shared_ptr<SharedWork<T>> work, int user) : work_(std::move(work)), user_(user) {}

    void leave() const {
        if (work_) {
            work_->leave(user_);
        }
    }

    bool hasBegun() const { return work_ && work_->hasBegun(); }

    // Has work that nobody else waits for stop, and stays to be told how that ended. False when there is
    // none.
    bool callOffIfAlone() const {
        if (!work_ || !work_->isSoleUser(user_) || !work_->hasBegun()) {
            return false;
        }
        work_->callOff();
        return true;
    }

private:
    std::shared_ptr<SharedWork<T>> work_;
    int user_ = 0;
};

// The work of one kind that is under way: who asks for what somebody else has asked for already joins him.
// Only until the answer is given out: no answer serves what is asked for later. Main actor only.
template <class Key, class T> class SharedWorks {
public:
    enum class Begin { atOnce, whenTheRoundCloses };

    explicit SharedWorks(std::shared_ptr<Rounds> rounds) : rounds_(std::move(rounds)) {}

    // `operation` is begun unless there is such work already.
    Share<T> ask(const Key& key, Completion<T> completion, Operation<T> operation, Begin begin) {
        rounds_->enter();
        const auto known = std::find_if(works_->begin(), works_->end(),
                                        [&](const Entry& entry) { return entry.key == key; });
        if (known != works_->end()) {
            return {known->work, known->work->join(std::move(completion))};
        }
        const auto work = add(key);
        const int user = work->join(std::move(completion));
        if (begin == Begin::atOnce) {
            work->begin(operation);
        } else {
            rounds_->atClose([work, operation = std::move(operation)] { work->begin(operation); });
        }
        return {work, user};
    }

    // Nobody joins work that has begun and fits any more.
    template <class Fits> void closeBegun(Fits fits) {
        works_->remove_if([&](const Entry& entry) { return entry.work->hasBegun() && fits(entry.key); });
    }

private:
    struct Entry {
        Key key;
        std::shared_ptr<SharedWork<T>> work;
    };
    using Entries = std::list<Entry>;

    std::shared_ptr<SharedWork<T>> add(const Key& key) {
        const auto work = std::make_shared<SharedWork<T>>(rounds_);
        works_->push_back({key, work});
        work->onRetirement = [works = std::weak_ptr(works_), retired = work.get()] {
            if (const auto entries = works.lock()) {
                entries->remove_if([&](const Entry& entry) { return entry.work.get() == retired; });
            }
        };
        return work;
    }

    std::shared_ptr<Rounds> rounds_;
    std::shared_ptr<Entries> works_ = std::make_shared<Entries>();
};

} // namespace cadora
