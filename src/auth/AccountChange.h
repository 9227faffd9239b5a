#pragma once

#include <optional>
#include <string>

namespace cadora {

// Notices whether a sign-in puts one account in the place of another, which must not happen without a word:
// recordings go to the new one from then on. Main actor only.
class AccountChange {
public:
    // Before the sign-in.
    AccountChange();

    // After it: one line in the system log if there was an account and it is another one now. The line names
    // neither.
    void report() const;

private:
    std::optional<std::string> userIdBefore_;
};

} // namespace cadora
