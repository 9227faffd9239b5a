#include "hosts/linux/desktop/QtColors.h"

#include <algorithm>
#include <cmath>

namespace cadora {

namespace {

constexpr double smallTextContrast = 4.5;

double linear(double channel) {
    return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& color) {
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

// The colour itself, or as much of the palette's text in it as it takes to be read.
QColor readable(const QColor& color, const QPalette& palette) {
    const QColor ground = palette.color(QPalette::Window);
    const QColor text = palette.color(QPalette::WindowText);
    QColor result = color;
    for (int percent = 5; percent <= 100 && contrast(result, ground) < smallTextContrast; percent += 5) {
        result = blend(color, text, percent / 100.0);
    }
    return result;
}

bool isDark(const QPalette& palette) {
    return luminance(palette.color(QPalette::Window)) < luminance(palette.color(QPalette::WindowText));
}

} // namespace

QColor blend(const QColor& a, const QColor& b, double share) {
    const auto mix = [share](double from, double to) {
        return static_cast<float>(from + (to - from) * share);
    };
    return QColor::fromRgbF(mix(a.redF(), b.redF()), mix(a.greenF(), b.greenF()), mix(a.blueF(), b.blueF()));
}

double contrast(const QColor& a, const QColor& b) {
    const auto [darker, lighter] = std::minmax({luminance(a), luminance(b)});
    return (lighter + 0.05) / (darker + 0.05);
}

QColor color(ColorRole role, const QPalette& palette) {
    const QColor ground = palette.color(QPalette::Window);
    const QColor text = palette.color(QPalette::WindowText);
    switch (role) {
    case ColorRole::label:
        return text;
    case ColorRole::secondaryLabel:
        return readable(blend(text, ground, 0.25), palette);
    case ColorRole::tertiaryLabel:
        return readable(blend(text, ground, 0.45), palette);
    case ColorRole::systemRed:
        return readable(isDark(palette) ? QColor(0xff, 0x69, 0x61) : QColor(0xd7, 0x00, 0x15), palette);
    case ColorRole::systemGreen:
        return readable(isDark(palette) ? QColor(0x30, 0xdb, 0x5b) : QColor(0x24, 0x8a, 0x3d), palette);
    case ColorRole::windowBackground:
        return ground;
    }
    return text;
}

} // namespace cadora
