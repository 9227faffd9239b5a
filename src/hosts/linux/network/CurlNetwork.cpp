#include "hosts/linux/network/CurlNetwork.h"

#include "hosts/linux/system/WipedMemory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include <csignal>
#include <pthread.h>

namespace cadora {

namespace {

using Clock = CurlTransfer::Clock;

struct FreeMulti {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

// The program's signals are for its main thread, and a peer that goes away while OpenSSL writes to it must
// not end the program by SIGPIPE. A new thread inherits the mask.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_{};
};

// Rounded up, so that what is due at the deadline is due when the wait ends.
int millisecondsUntil(Clock::time_point deadline) {
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(wait, 0, std::numeric_limits<int>::max()));
}

} // namespace

CurlNetwork::CurlNetwork(std::chrono::milliseconds idleLifetime, Report report)
    : idleLifetime_(idleLifetime), report_(std::move(report)) {}

CurlNetwork::~CurlNetwork() {
    {
        const std::lock_guard guard(mutex_);
        orders_.stop = true;
        if (multi_ != nullptr) {
            curl_multi_wakeup(multi_);
        }
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

void CurlNetwork::add(TransferID id, std::unique_ptr<CurlTransfer> transfer) {
    const std::lock_guard guard(mutex_);
    if (multi_ == nullptr) {
        start();
    }
    orders_.add.emplace(id, std::move(transfer));
    curl_multi_wakeup(multi_);
}

void CurlNetwork::remove(TransferID id) {
    const std::lock_guard guard(mutex_);
    if (multi_ != nullptr) {
        orders_.remove.push_back(id);
        curl_multi_wakeup(multi_);
    }
}

// A previous thread has taken its last look at the orders, so that waiting for it is short.
void CurlNetwork::start() {
    // libcurl copies the fields of each request.
    static const CURLcode initialized = curl_global_init_mem(CURL_GLOBAL_DEFAULT, std::malloc, releaseWiped,
                                                             reallocateWiped, ::strdup, std::calloc);
    if (thread_.joinable()) {
        thread_.join();
    }
    std::unique_ptr<CURLM, FreeMulti> multi(initialized == CURLE_OK ? curl_multi_init() : nullptr);
    if (!multi) {
        throw std::bad_alloc();
    }
    const SignalsBlocked blocked;
    thread_ = std::thread([this, raw = multi.get()] {
        pthread_setname_np(pthread_self(), "cadora-network");
        CurlSockets sockets;
        const std::unique_ptr<CURLM, FreeMulti> owned(raw);
        run(raw, sockets);
    });
    multi_ = multi.release();
}

void CurlNetwork::run(CURLM* multi, CurlSockets& sockets) {
    Transfers transfers;
    Clock::time_point idleSince = Clock::now();
    while (carryOut(multi, sockets, transfers) == Turn::goOn) {
        int running = 0;
        curl_multi_perform(multi, &running);
        reportFinished(multi, transfers);
        endOverdue(transfers);

        Clock::time_point deadline = Clock::time_point::max();
        if (transfers.empty()) {
            deadline = idleSince + idleLifetime_;
            if (Clock::now() >= deadline && endIdle()) {
                return;
            }
        } else {
            idleSince = Clock::now();
            for (const auto& [id, transfer] : transfers) {
                deadline = std::min(deadline, transfer->nextLook());
            }
        }
        curl_multi_poll(multi, nullptr, 0, millisecondsUntil(deadline), nullptr);
    }
}

CurlNetwork::Turn CurlNetwork::carryOut(CURLM* multi, CurlSockets& sockets, Transfers& transfers) {
    Orders orders;
    {
        const std::lock_guard guard(mutex_);
        std::swap(orders, orders_);
        if (orders.stop) {
            multi_ = nullptr;
            return Turn::end;
        }
    }
    for (const TransferID id : orders.remove) {
        orders.add.erase(id);
        transfers.erase(id);
    }
    while (!orders.add.empty()) {
        const auto added = transfers.insert(orders.add.extract(orders.add.begin())).position;
        try {
            added->second->begin(multi, sockets);
        } catch (...) {
            fail(transfers, added, std::current_exception());
        }
    }
    return Turn::goOn;
}

// False when orders have come in meanwhile.
bool CurlNetwork::endIdle() {
    const std::lock_guard guard(mutex_);
    if (!orders_.empty()) {
        return false;
    }
    multi_ = nullptr;
    return true;
}

void CurlNetwork::reportFinished(CURLM* multi, Transfers& transfers) {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
        if (message->msg != CURLMSG_DONE) {
            continue;
        }
        const CURLcode code = message->data.result;
        CurlTransfer& transfer = CurlTransfer::from(message->easy_handle);
        const auto found = std::find_if(transfers.begin(), transfers.end(),
                                        [&](const auto& entry) { return entry.second.get() == &transfer; });
        if (auto result = transfer.finish(code)) {
            const TransferID id = found->first;
            transfers.erase(found);
            report_(id, *std::move(result));
        }
    }
}

void CurlNetwork::endOverdue(Transfers& transfers) {
    const auto now = Clock::now();
    for (auto entry = transfers.begin(); entry != transfers.end();) {
        const auto current = entry++;
        if (const auto error = current->second->overdue(now)) {
            fail(transfers, current, std::make_exception_ptr(*error));
        }
    }
}

void CurlNetwork::fail(Transfers& transfers, Transfers::iterator transfer, std::exception_ptr error) {
    const TransferID id = transfer->first;
    transfers.erase(transfer);
    report_(id, std::move(error));
}

} // namespace cadora
