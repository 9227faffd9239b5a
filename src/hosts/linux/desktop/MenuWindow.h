#pragma once

#include "platform/Menu.h"

#include <QDialog>
#include <QString>

#include <vector>

class QBoxLayout;
class QScrollArea;

namespace cadora {

// A menu as a window, for a desktop that has no place for a status item: what the menu's separators part
// stands in boxes, information as text, commands as buttons, switches and choices, submenus under headings.
// The order and the texts are the menu's. Every line can be reached by the keyboard, so that a screen reader
// reads it. Main thread only.
class MenuWindow : public QDialog {
public:
    MenuWindow();

    // The target must outlive the window.
    void showMenu(const Menu& menu, MenuTarget& target);

    enum class TextLook { plain, heading };

private:
    struct Line {
        int index = 0;
        QString title;
    };

    Line focusedLine() const;
    void focusLine(const Line& line);
    void addBoxes(QBoxLayout& boxes, const Menu& menu, MenuTarget& target);
    void addSubmenu(QBoxLayout& box, const MenuSubmenu& submenu, TextLook look, MenuTarget& target);
    void addItem(QBoxLayout& box, const MenuItem& item, MenuTarget& target);
    void addLine(QBoxLayout& layout, QWidget* line, const QString& title);
    void fit(const QWidget& content);

    QScrollArea* scroller_;
    // From top to bottom; of the content that is shown now.
    std::vector<QWidget*> lines_;
};

} // namespace cadora
