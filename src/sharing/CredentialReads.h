#pragma once

#include "platform/Keychain.h"

#include <map>
#include <string>
#include <tuple>

namespace cadora {

// What has been read from the keychain by those who work together at this moment, so that all of them read
// the same, and the keychain is asked once. One thread at a time, but for the look at the current one, which
// each thread has its own of.
class CredentialReads {
public:
    struct Read {
        Keychain::Status status = Keychain::itemNotFound;
        std::string data;
    };

    // While it lives, reads on this thread are of these.
    class Scope {
    public:
        explicit Scope(CredentialReads& reads);
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope();

    private:
        CredentialReads* outer_;
    };

    // Of this thread; null where everybody reads for himself.
    static CredentialReads* current();

    // Reads from the keychain what hasn't been read yet.
    const Read& read(Keychain& keychain, const KeychainQuery& query);
    void forget() { reads_.clear(); }

private:
    std::map<std::tuple<std::string, std::string, bool>, Read> reads_;
};

} // namespace cadora
