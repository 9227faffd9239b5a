#include "hosts/linux/register/DefaultApplications.h"

#include <algorithm>
#include <optional>

namespace cadora {

namespace {

std::string_view takeUpTo(std::string_view& text, char delimiter) {
    const std::size_t end = text.find(delimiter);
    const std::string_view taken = text.substr(0, end == std::string_view::npos ? text.size() : end + 1);
    text.remove_prefix(taken.size());
    return taken;
}

std::string_view trimmed(std::string_view text, std::string_view what) {
    const std::size_t begin = text.find_first_not_of(what);
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(what) - begin + 1);
}

// The line without the entry, or absent when nothing else is in it.
std::optional<std::string> lineWithout(std::string_view line, std::string_view desktopID) {
    std::string_view rest = line;
    std::string kept(takeUpTo(rest, '='));
    const std::string_view lineEnd = rest.substr(std::min(rest.find_last_not_of("\r\n") + 1, rest.size()));
    rest.remove_suffix(lineEnd.size());
    bool isEmpty = true;
    while (!rest.empty()) {
        const std::string_view item = takeUpTo(rest, ';');
        const std::string_view name = trimmed(item, "; \t");
        if (name != desktopID) {
            kept += item;
            isEmpty = isEmpty && name.empty();
        }
    }
    kept += lineEnd;
    return isEmpty ? std::nullopt : std::optional(kept);
}

} // namespace

std::string withoutApplication(std::string_view list, std::string_view desktopID, std::string_view keptType) {
    std::string result;
    std::string group; // what was kept of the group so far
    bool isNeeded = true;
    const auto endGroup = [&] {
        const bool holdsNothing =
            trimmed(std::string_view(group).substr(group.find('\n') + 1), " \t\r\n").empty();
        if (isNeeded || !holdsNothing) {
            result += group;
        }
        group.clear();
        isNeeded = true;
    };
    while (!list.empty()) {
        const std::string_view line = takeUpTo(list, '\n');
        if (line.starts_with('[')) {
            endGroup();
        }
        const bool isOfKeptType =
            !keptType.empty() && trimmed(line.substr(0, line.find('=')), " \t") == keptType;
        if (line.find(desktopID) == std::string_view::npos || line.starts_with('[') ||
            line.starts_with('#') || isOfKeptType) {
            group += line;
        } else if (const auto kept = lineWithout(line, desktopID)) {
            group += *kept;
        } else {
            isNeeded = false;
        }
    }
    endGroup();
    return result;
}

} // namespace cadora
