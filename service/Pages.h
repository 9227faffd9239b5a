#pragma once

#include "service/PostBook.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cadora::service {

/// The sign-in page, with a button for each way a sign-in can end.
std::string signInPage();

/// The page that lists posts in the order given, each with a player.
std::string postsPage(const std::vector<Post>& posts);

/// The callback URL for a button of the sign-in page, absent for an outcome that has no button.
std::optional<std::string> callbackUrl(std::string_view outcome, std::string_view token,
                                       std::string_view userId, std::string_view email);

} // namespace cadora::service
