#pragma once

#include <string>

namespace cadora {

enum class Display { absent, present };

// Whether windows can be shown. Looked for before there is any Qt application object, since one that needs a
// display ends the program where it finds none.
Display findDisplay();

// Why no window can be shown although the environment names a display, for a person; empty where it names
// none. For when findDisplay() has found none.
std::string whyDisplayIsAbsent();

} // namespace cadora
