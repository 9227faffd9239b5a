#include "base/PathRules.h"

#include "base/UTF8.h"

namespace cadora {

namespace {

bool isExcludedFromExtensions(char32_t scalar) {
    const bool directionMark = scalar == 0x061C || scalar == 0x200E || scalar == 0x200F ||
                               (scalar >= 0x202A && scalar <= 0x202E) ||
                               (scalar >= 0x2066 && scalar <= 0x2069);
    return scalar == ' ' || directionMark;
}

// Where the dot of the extension stands in a single component, or npos.
std::size_t extensionDot(std::string_view component) {
    const auto dot = component.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == component.size()) {
        return std::string_view::npos;
    }
    auto extension = component.substr(dot + 1);
    while (!extension.empty()) {
        if (isExcludedFromExtensions(takeUTF8Character(extension).scalar)) {
            return std::string_view::npos;
        }
    }
    return dot;
}

} // namespace

std::string lastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    if (path == "/") {
        return "/";
    }
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string pathExtension(std::string_view name) {
    const std::string component = lastPathComponent(name);
    const auto dot = extensionDot(component);
    return dot == std::string::npos ? "" : component.substr(dot + 1);
}

std::string deletingPathExtension(std::string_view name) {
    const std::string component = lastPathComponent(name);
    return component.substr(0, extensionDot(component));
}

} // namespace cadora
