#pragma once

#include "base/URL.h"

#include <optional>
#include <string>
#include <variant>

namespace cadora {

// Reads the URL to which the service's sign-in page redirects when it is done.
class AuthCallback {
public:
    AuthCallback() = delete;

    // The service issued a session. Neither the token nor the user id is empty; nor is the e-mail, when there
    // is one.
    struct Success {
        std::string token;
        std::string userId;
        std::optional<std::string> email;

        friend bool operator==(const Success&, const Success&) = default;
    };

    // The Apple ID is not linked to an account of the service.
    struct NoAccount {
        friend bool operator==(const NoAccount&, const NoAccount&) = default;
    };

    // Anything else: another error of the service, a URL that lacks the token or the user id, or a token,
    // user id or e-mail that holds control characters or is longer than 8000, 255 or 254 bytes.
    struct Failure {
        friend bool operator==(const Failure&, const Failure&) = default;
    };

    using Outcome = std::variant<Success, NoAccount, Failure>;

    // Of several items of one name only the first counts, and an empty value is no value. An error wins over
    // a token beside it.
    static Outcome parse(const URL& url);
};

} // namespace cadora
