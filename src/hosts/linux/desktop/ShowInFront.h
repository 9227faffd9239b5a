#pragma once

#include "hosts/linux/bus/Activation.h"

class QWidget;

namespace cadora {

// Desktops let a program take the keyboard only for something that the user did, which the desktop itself
// vouches for: with a token under Wayland, with a start's identifier, which holds its time, under X11. Main
// thread only.

// What the desktop gave with this process's own start. Takes it out of the environment, so that no program
// that this one starts inherits it; to be called before there is a QApplication.
Activation takeActivationOfStart();

// Keeps it for the windows that are brought to the front within some seconds, in place of what was kept
// before. Under X11 the desktop is told that the start has ended, so that it shows no more that it goes on.
void keepActivation(const Activation& activation);

// Shows the window above the others and gives it the keyboard; where the desktop doesn't let it have that,
// asks for the user's attention.
void showInFront(QWidget& window);

} // namespace cadora
