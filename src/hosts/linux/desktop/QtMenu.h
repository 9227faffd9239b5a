#pragma once

#include "platform/Menu.h"

#include <QMenu>

#include <memory>

namespace cadora {

// A menu value as a QMenu. A later value changes what differs in the same one, so that an open menu stays
// open, and the item under the pointer stays where it is. Main thread only.
class QtMenu {
public:
    enum class Reader {
        widgets, // shown by this program
        panel,   // shown by the desktop's panel, which reads the menu over D-Bus
    };

    explicit QtMenu(Reader reader);

    // The target must outlive the menu.
    void show(const Menu& menu, MenuTarget& target);

    QMenu& widget() { return widget_; }

private:
    void update(QMenu& widget, const Menu& shown, const Menu& wanted);
    void apply(QAction& action, const MenuItem* shown, const MenuItem& wanted);
    QAction* makeAction(QMenu& parent, const MenuItem& item);
    QString title(const std::string& text) const;

    Reader reader_;
    QMenu widget_;
    Menu shown_;
    MenuTarget* target_ = nullptr;
};

} // namespace cadora
