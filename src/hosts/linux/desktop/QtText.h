#pragma once

#include <QString>

#include <string>

namespace cadora {

inline QString qtText(const std::string& text) {
    return QString::fromStdString(text);
}

// For titles of buttons and menu items, where '&' would mark the next letter as a shortcut.
inline QString qtTitle(const std::string& text) {
    return qtText(text).replace(QLatin1Char('&'), QLatin1String("&&"));
}

} // namespace cadora
