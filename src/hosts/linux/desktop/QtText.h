#pragma once

#include <QString>
#include <QTextDocument>

#include <string>

namespace cadora {

inline QString qtText(const std::string& text) {
    return QString::fromStdString(text);
}

// For titles of buttons and menu items, where '&' would mark the next letter as a shortcut.
inline QString qtTitle(const std::string& text) {
    return qtText(text).replace(QLatin1Char('&'), QLatin1String("&&"));
}

// A file's name may look like markup, which a tool tip would interpret.
inline QString qtToolTip(const std::string& text) {
    const QString shown = qtText(text);
    return Qt::mightBeRichText(shown) ? QLatin1String("<p>") + shown.toHtmlEscaped() + QLatin1String("</p>")
                                      : shown;
}

} // namespace cadora
