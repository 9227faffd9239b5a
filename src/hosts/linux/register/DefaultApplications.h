#pragma once

#include <string>
#include <string_view>

namespace cadora {

// A mimeapps.list without the lines and the mentions of one desktop entry, and without the groups that are
// empty for want of it. What it is to one type, where that is named, stays, and so does every other byte.
std::string withoutApplication(std::string_view list, std::string_view desktopID,
                               std::string_view keptType = {});

} // namespace cadora
