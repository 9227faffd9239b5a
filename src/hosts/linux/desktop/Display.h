#pragma once

namespace cadora {

enum class Display { absent, present };

// Whether windows can be shown. Looked for before there is any Qt application object, since one that needs a
// display ends the program where it finds none.
Display findDisplay();

} // namespace cadora
