#pragma once

#include "platform/Keychain.h"

#include <chrono>
#include <functional>
#include <memory>

namespace cadora {

// The desktop's Secret Service. An item carries the attributes "service" and "account", and whatever item
// carries these is ours, whichever program made it.
//
// Nothing here ever asks the user: what is locked is a status. One thread of its own talks to the service, so
// that a caller waits for it no longer than the patience given. While a call that somebody gave up waiting
// for is still under way, further ones fail at once: a dead service costs one wait, not one for each call.
// A write that was given up may still take effect when the service comes back to life.
class LibsecretKeychain : public Keychain {
public:
    // The other statuses that calls end with.
    static constexpr Status notAvailable = -25291;          // no service, or none that answers in time
    static constexpr Status duplicateItem = -25299;         // add() of an item that exists
    static constexpr Status interactionNotAllowed = -25308; // locked: only the user can open it

    explicit LibsecretKeychain(std::chrono::milliseconds patience = std::chrono::seconds(2));
    LibsecretKeychain(const LibsecretKeychain&) = delete;
    LibsecretKeychain& operator=(const LibsecretKeychain&) = delete;
    // Calls off what is under way, and leaves the thread to itself if the service keeps it.
    ~LibsecretKeychain() override;

    Status copyMatching(const KeychainQuery& query, std::string* data) override;
    Status update(const KeychainQuery& query, const std::string& data) override;
    Status add(const KeychainQuery& query, const std::string& data,
               KeychainAccessibility accessibility) override;
    Status remove(const KeychainQuery& query) override;

private:
    class Worker;

    std::shared_ptr<Worker> worker_;
};

} // namespace cadora
