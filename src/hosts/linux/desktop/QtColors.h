#pragma once

#include "platform/View.h"

#include <QColor>
#include <QPalette>

namespace cadora {

// How a colour role looks in the desktop's palette. What text may be written in contrasts with the window's
// ground by 4.5 to 1 at least, whether that is light or dark, as small text needs; where the palette's own
// text falls short, its roles do too.
QColor color(ColorRole role, const QPalette& palette);

// The contrast of two opaque colours: 1 for equal ones, 21 for black and white.
double contrast(const QColor& a, const QColor& b);

// `share` of the second colour, from 0 to 1, and the rest of the first.
QColor blend(const QColor& a, const QColor& b, double share);

} // namespace cadora
