#pragma once

#include "platform/View.h"

#include <QWidget>

namespace cadora {

// The content of a window as widgets. One point is one pixel where the desktop's font is of the usual size,
// ten points; with a larger font everything grows, so that no text is cut off. Its size hint is the size that
// the content takes.
class QtContentView : public QWidget {
public:
    // The target must outlive the view.
    QtContentView(const ContentView& content, double contentWidth, ViewTarget& target);

    // Replaces the label of that identifier, and tells screen readers; nothing where there is none.
    void updateLabel(const Label& label);

    // Gives the keyboard to the button that the window is about; nothing where there is none.
    void focusMainButton();

    // How many pixels a point has in the desktop's font: one or more.
    static double pixelsPerPoint();
};

} // namespace cadora
