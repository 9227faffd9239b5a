#include "hosts/linux/network/CurlURLSession.h"

#include "hosts/linux/network/CurlNetwork.h"
#include "hosts/linux/network/CurlTransfer.h"
#include "hosts/linux/network/UploadFile.h"

#include <exception>
#include <map>
#include <utility>

namespace cadora {

// The requests that somebody still waits for. Main actor only, but for report(), which any thread may call.
struct CurlURLSession::Pending : std::enable_shared_from_this<Pending> {
    explicit Pending(MainActor& mainActor) : actor(mainActor) {}

    void report(CurlNetwork::TransferID id, Result<Answer> result) {
        actor.post([weak = weak_from_this(), id, result = std::move(result)]() mutable {
            const auto self = weak.lock();
            const auto waiting = self ? self->completions.extract(id) : Completions::node_type();
            if (waiting) {
                waiting.mapped()(std::move(result));
            }
        });
    }

    using Completions = std::map<CurlNetwork::TransferID, Completion<Answer>>;

    MainActor& actor;
    Completions completions;
    CurlNetwork::TransferID lastID = 0;
    std::unique_ptr<CurlNetwork> network;
};

CurlURLSession::CurlURLSession(MainActor& actor, Configuration configuration)
    : configuration_(std::move(configuration)), pending_(std::make_shared<Pending>(actor)) {
    pending_->network = std::make_unique<CurlNetwork>(
        configuration_.idleLifetime,
        [&pending = *pending_](CurlNetwork::TransferID id, Result<Answer> result) {
            pending.report(id, std::move(result));
        });
}

CurlURLSession::~CurlURLSession() {
    pending_->network.reset();
    pending_->completions.clear();
}

TransferOptions CurlURLSession::options() const {
    return {configuration_.maximumAnswerSize, configuration_.maximumAnswerTime,
            configuration_.certificateAuthorityFile};
}

CancelAction CurlURLSession::data(URLRequest request, Completion<Answer> completion) {
    return begin([&] { return std::make_unique<CurlTransfer>(std::move(request), nullptr, options()); },
                 std::move(completion));
}

CancelAction CurlURLSession::upload(URLRequest request, std::filesystem::path fromFile,
                                    Completion<Answer> completion) {
    return begin(
        [&] {
            return std::make_unique<CurlTransfer>(
                std::move(request), std::make_unique<UploadFile>(std::move(fromFile)), options());
        },
        std::move(completion));
}

CancelAction CurlURLSession::begin(const std::function<std::unique_ptr<CurlTransfer>()>& makeTransfer,
                                   Completion<Answer> completion) {
    const CurlNetwork::TransferID id = ++pending_->lastID;
    pending_->completions.emplace(id, std::move(completion));
    try {
        pending_->network->add(id, makeTransfer());
    } catch (...) {
        pending_->report(id, std::current_exception());
    }
    return [weak = std::weak_ptr(pending_), id] {
        const auto pending = weak.lock();
        if (pending && pending->completions.erase(id) != 0) {
            pending->network->remove(id);
        }
    };
}

} // namespace cadora
