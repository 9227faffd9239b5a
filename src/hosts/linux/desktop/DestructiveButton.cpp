#include "hosts/linux/desktop/DestructiveButton.h"

#include "hosts/linux/desktop/QtColors.h"

#include <QApplication>
#include <QPushButton>
#include <QStyle>

namespace cadora {

void markDestructive(QPushButton& button) {
    QPalette colors = QApplication::palette();
    // It is written on the button's ground.
    QPalette onButton = colors;
    onButton.setColor(QPalette::Window, colors.color(QPalette::Button));
    colors.setColor(QPalette::ButtonText, color(ColorRole::systemRed, onButton));
    button.setPalette(colors);
    if (button.style()->styleHint(QStyle::SH_DialogButtonBox_ButtonsHaveIcons, nullptr, &button) != 0) {
        button.setIcon(QIcon::fromTheme(QStringLiteral("edit-delete")));
    }
}

} // namespace cadora
