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

} // namespace

AuthCallback::Outcome AuthCallback::parse(const URL& url) {
    const QueryItems items = url.queryItems();
    if (const auto error = value(items, "error")) {
        return error == "no_account" ? Outcome(NoAccount()) : Outcome(Failure());
    }
    auto token = value(items, "token");
    auto userId = value(items, "user_id");
    if (!token || !userId) {
        return Failure();
    }
    return Success{*std::move(token), *std::move(userId), value(items, "email")};
}

} // namespace cadora
