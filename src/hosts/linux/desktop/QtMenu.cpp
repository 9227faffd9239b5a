#include "hosts/linux/desktop/QtMenu.h"

#include "base/UTF8.h"
#include "hosts/linux/desktop/QtText.h"

#include <QAction>
#include <QKeySequence>

#include <algorithm>

namespace cadora {

namespace {

template <class... Visitors> struct Overloaded : Visitors... {
    using Visitors::operator()...;
};
template <class... Visitors> Overloaded(Visitors...) -> Overloaded<Visitors...>;

using ItemVariant = std::variant<MenuSeparator, MenuInformation, MenuCommand, MenuSubmenu>;

const ItemVariant& variant(const MenuItem& item) {
    return item;
}

// The panel's protocol marks a shortcut's letter by '_', and Qt makes that of the first '&'.
QString panelTitle(const std::string& text) {
    QString title = qtText(text).replace(QLatin1Char('_'), QLatin1String("__"));
    if (const qsizetype first = title.indexOf(QLatin1Char('&')); first >= 0 && first + 1 < title.size()) {
        title.insert(first, QLatin1Char('&'));
    }
    return title;
}

QKeySequence shortcut(const MenuCommand& command) {
    return command.keyEquivalent.empty()
               ? QKeySequence()
               : QKeySequence(QStringLiteral("Ctrl+") + qtText(command.keyEquivalent).toUpper());
}

// An action may be the one whose signal led here.
void discard(QMenu& menu, QAction& action) {
    menu.removeAction(&action);
    if (QMenu* const submenu = action.menu()) {
        submenu->deleteLater();
    } else {
        action.deleteLater();
    }
}

} // namespace

QtMenu::QtMenu(Reader reader) : reader_(reader) {
    widget_.setToolTipsVisible(true);
}

void QtMenu::show(const Menu& menu, MenuTarget& target) {
    target_ = &target;
    update(widget_, shown_, menu);
    shown_ = menu;
}

// Items of one kind at the same place, counted from the beginning or from the end, are changed in place.
void QtMenu::update(QMenu& widget, const Menu& shown, const Menu& wanted) {
    const auto sameKind = [](const MenuItem& a, const MenuItem& b) { return a.index() == b.index(); };
    const auto common = std::mismatch(shown.begin(), shown.end(), wanted.begin(), wanted.end(), sameKind);
    const auto before = common.first - shown.begin();
    const auto after = std::mismatch(shown.rbegin(), shown.rend() - before, wanted.rbegin(),
                                     wanted.rend() - before, sameKind)
                           .first -
                       shown.rbegin();
    const QList<QAction*> actions = widget.actions();
    const auto shownEnd = static_cast<std::ptrdiff_t>(shown.size()) - after;
    const auto wantedEnd = static_cast<std::ptrdiff_t>(wanted.size()) - after;
    for (std::ptrdiff_t i = before; i < shownEnd; ++i) {
        discard(widget, *actions[i]);
    }
    QAction* const next = after > 0 ? actions[shownEnd] : nullptr;
    for (std::ptrdiff_t i = before; i < wantedEnd; ++i) {
        widget.insertAction(next, makeAction(widget, wanted[static_cast<std::size_t>(i)]));
    }
    const auto change = [&](std::ptrdiff_t from, std::ptrdiff_t to) {
        apply(*actions[from], &shown[static_cast<std::size_t>(from)], wanted[static_cast<std::size_t>(to)]);
    };
    for (std::ptrdiff_t i = 0; i < before; ++i) {
        change(i, i);
    }
    for (std::ptrdiff_t i = 0; i < after; ++i) {
        change(shownEnd + i, wantedEnd + i);
    }
}

QAction* QtMenu::makeAction(QMenu& parent, const MenuItem& item) {
    QAction* const action =
        std::holds_alternative<MenuSubmenu>(item) ? (new QMenu(&parent))->menuAction() : new QAction(&parent);
    apply(*action, nullptr, item);
    if (std::holds_alternative<MenuCommand>(item)) {
        QObject::connect(action, &QAction::triggered, action, [this, action] {
            // Qt has turned the mark over; whether that is so, the next value says.
            action->setChecked(action->isCheckable());
            target_->perform(static_cast<MenuAction>(action->data().toInt()));
        });
    }
    return action;
}

void QtMenu::apply(QAction& action, const MenuItem* shown, const MenuItem& wanted) {
    std::visit(Overloaded{
                   [&](const MenuSeparator&) { action.setSeparator(true); },
                   [&](const MenuInformation& information) {
                       const std::string drawn = shortenedInTheMiddle(information.title, longestMenuTitle);
                       action.setText(title(drawn));
                       action.setToolTip(drawn == information.title ? QString()
                                                                    : qtToolTip(information.title));
                       action.setEnabled(false);
                   },
                   [&](const MenuCommand& command) {
                       action.setText(title(command.title));
                       action.setData(static_cast<int>(command.action));
                       action.setCheckable(command.checkMark == CheckMark::on);
                       action.setChecked(command.checkMark == CheckMark::on);
                       action.setShortcut(shortcut(command));
                   },
                   [&](const MenuSubmenu& submenu) {
                       action.setText(title(submenu.title));
                       const auto* const before = shown ? std::get_if<MenuSubmenu>(shown) : nullptr;
                       update(*action.menu(), before ? before->menu : Menu(), submenu.menu);
                   },
               },
               variant(wanted));
}

QString QtMenu::title(const std::string& text) const {
    return reader_ == Reader::panel ? panelTitle(text) : qtTitle(text);
}

} // namespace cadora
