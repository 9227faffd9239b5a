#pragma once

#include "base/Completion.h"
#include "hosts/linux/network/CurlSockets.h"
#include "hosts/linux/network/CurlTransfer.h"

#include <chrono>
#include <cstdint>
#include <curl/curl.h>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace cadora {

// The network thread, around libcurl's multi interface. It exists while a transfer is under way and for a
// while afterwards, in which connections are kept for reuse; it wakes for nothing but traffic, time-outs, the
// calls below and its own end.
class CurlNetwork {
public:
    using TransferID = std::uint64_t;
    using Report = std::function<void(TransferID, Result<URLSession::Answer>)>;

    // `report` is called on the network thread, at most once for each transfer; it must not call back.
    CurlNetwork(std::chrono::milliseconds idleLifetime, Report report);
    CurlNetwork(const CurlNetwork&) = delete;
    CurlNetwork& operator=(const CurlNetwork&) = delete;

    // Abandons the transfers under way. Waits for the thread, which doesn't wait for the network.
    ~CurlNetwork();

    // One thread at a time, the same that makes and ends this object.
    void add(TransferID id, std::unique_ptr<CurlTransfer> transfer);
    void remove(TransferID id);

private:
    using Transfers = std::map<TransferID, std::unique_ptr<CurlTransfer>>;

    // What is to be done on the network thread.
    struct Orders {
        Transfers add;
        std::vector<TransferID> remove;
        bool stop = false;

        bool empty() const { return add.empty() && remove.empty() && !stop; }
    };

    enum class Turn { goOn, end };

    void start();
    void run(CURLM* multi, CurlSockets& sockets);
    Turn carryOut(CURLM* multi, CurlSockets& sockets, Transfers& transfers);
    bool endIdle();
    void reportFinished(CURLM* multi, Transfers& transfers);
    void endOverdue(Transfers& transfers);
    void fail(Transfers& transfers, Transfers::iterator transfer, std::exception_ptr error);

    const std::chrono::milliseconds idleLifetime_;
    const Report report_;

    std::mutex mutex_;
    Orders orders_;
    // Null while no thread runs that would take orders.
    CURLM* multi_ = nullptr;
    std::thread thread_;
};

} // namespace cadora
