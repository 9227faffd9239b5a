#pragma once

#include "hosts/linux/desktop/QtMenu.h"
#include "platform/Menu.h"

#include <QDialog>
#include <QString>

#include <map>
#include <memory>
#include <string>

class QLayout;
class QScrollArea;

namespace cadora {

// A menu as a small window, for a desktop that has no place for a status item: the same lines from top to
// bottom, commands as buttons, submenus opened by buttons. Every line can be reached by the keyboard, so that
// a screen reader reads it. Main thread only.
class MenuWindow : public QDialog {
public:
    MenuWindow();

    // The target must outlive the window.
    void showMenu(const Menu& menu, MenuTarget& target);

private:
    struct Line {
        int index = 0;
        QString title;
    };

    Line focusedLine() const;
    static void focusLine(const QLayout& layout, const Line& line);
    QWidget* makeLine(const MenuItem& item, MenuTarget& target);

    QScrollArea* scroller_;
    // By their titles; they stay, since one may be open.
    std::map<std::string, std::unique_ptr<QtMenu>> submenus_;
};

} // namespace cadora
