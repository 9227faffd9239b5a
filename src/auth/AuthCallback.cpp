#include "auth/AuthCallback.h"

#include "base/UTF8.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace cadora {

namespace {

using QueryItems = std::vector<std::pair<std::string, std::optional<std::string>>>;

// A value that decodes to something else than text is none: stored, it would delete a credential.
std::optional<std::string> value(const QueryItems& items, std::string_view name) {
    const auto found =
        std::find_if(items.begin(), items.end(), [&](const auto& item) { return item.first == name; });
    if (found == items.end() || !found->second || found->second->empty() || !isValidUTF8(*found->second)) {
        return std::nullopt;
    }
    return found->second;
}

// The longest that is stored. A token goes into a header, and servers refuse headers of more than 8 KiB; an
// e-mail address has 254 bytes at most.
constexpr std::size_t longestToken = 8000;
constexpr std::size_t longestUserId = 255;
constexpr std::size_t longestEmail = 254;

bool isControl(char32_t scalar) {
    return scalar < 0x20 || (scalar >= 0x7F && scalar < 0xA0);
}

// What goes into headers and is shown in one line of the menu holds no line breaks, nor anything like them.
bool isUsable(std::string_view text, std::size_t longest) {
    if (text.size() > longest) {
        return false;
    }
    while (!text.empty()) {
        if (isControl(takeUTF8Character(text).scalar)) {
            return false;
        }
    }
    return true;
}

} // namespace

AuthCallback::Outcome AuthCallback::parse(const URL& url) {
    const QueryItems items = url.queryItems();
    if (const auto error = value(items, "error")) {
        return error == "no_account" ? Outcome(NoAccount()) : Outcome(Failure());
    }
    auto token = value(items, "token");
    auto userId = value(items, "user_id");
    auto email = value(items, "email");
    if (!token || !userId || !isUsable(*token, longestToken) || !isUsable(*userId, longestUserId) ||
        (email && !isUsable(*email, longestEmail))) {
        return Failure();
    }
    return Success{*std::move(token), *std::move(userId), std::move(email)};
}

} // namespace cadora
