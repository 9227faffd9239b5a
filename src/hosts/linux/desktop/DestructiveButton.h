#pragma once

class QPushButton;

namespace cadora {

// Marks a button that destroys something, as the user's desktop does: with a red title, and where signs are
// usual on buttons with that of deleting. Its place, and whether Return presses it, stay.
void markDestructive(QPushButton& button);

} // namespace cadora
