#pragma once

#include <string>
#include <string_view>

namespace cadora {

// A mimeapps.list without the lines and the mentions of one desktop entry, and without the groups that are
// empty for want of it. Every other byte stays.
std::string withoutApplication(std::string_view list, std::string_view desktopID);

} // namespace cadora
