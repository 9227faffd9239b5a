#pragma once

#include <QIcon>

namespace cadora {

// The application's picture, for its windows.
QIcon applicationIcon();

// The status item's picture: known to the panel by the name of the symbolic icon where that is installed, so
// that the panel gives it the colour of its text; drawn in the colour of the desktop's text, with a fine edge
// in that of its ground, for a panel that wants pixels.
QIcon statusIcon();

} // namespace cadora
