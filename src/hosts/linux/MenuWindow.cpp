#include "hosts/linux/MenuWindow.h"

#include "hosts/linux/QtText.h"
#include "hosts/linux/QtWindow.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QApplication>
#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

namespace cadora {

namespace {

class Separator : public QFrame {
public:
    Separator() {
        setFrameShape(QFrame::HLine);
        setFrameShadow(QFrame::Sunken);
        QAccessible::installFactory(&Separator::makeAccessible);
    }

private:
    // A plain frame would be a window's to a screen reader.
    static QAccessibleInterface* makeAccessible(const QString&, QObject* object) {
        auto* const line = dynamic_cast<Separator*>(object);
        return line ? new QAccessibleWidget(line, QAccessible::Separator) : nullptr;
    }
};

QWidget* makeInformation(const MenuInformation& information) {
    auto* const label = new QLabel;
    label->setTextFormat(Qt::PlainText);
    label->setText(qtText(information.title));
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setFocusPolicy(Qt::StrongFocus);
    return label;
}

QWidget* makeCommand(const MenuCommand& command, MenuTarget& target) {
    auto* const button = new QPushButton(qtTitle(command.title));
    button->setCheckable(command.checkMark == CheckMark::on);
    button->setChecked(command.checkMark == CheckMark::on);
    if (!command.keyEquivalent.empty()) {
        const QString keys = QStringLiteral("Ctrl+") + qtText(command.keyEquivalent).toUpper();
        button->setShortcut(QKeySequence(keys));
        button->setToolTip(keys);
    }
    QObject::connect(button, &QPushButton::clicked, button, [button, action = command.action, &target] {
        button->setChecked(button->isCheckable());
        target.perform(action);
    });
    return button;
}

} // namespace

MenuWindow::MenuWindow() : scroller_(new QScrollArea) {
    setWindowTitle(QApplication::applicationName());
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    scroller_->setFrameShape(QFrame::NoFrame);
    scroller_->setWidgetResizable(true);
    scroller_->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(scroller_);
    closeByKeys(*this);
}

void MenuWindow::showMenu(const Menu& menu, MenuTarget& target) {
    const Line focused = focusedLine();
    auto* const content = new QWidget;
    auto* const layout = new QVBoxLayout(content);
    for (const MenuItem& item : menu) {
        layout->addWidget(makeLine(item, target));
    }
    layout->addStretch();
    if (QWidget* const former = scroller_->takeWidget()) {
        former->hide();
        // It may be the one whose button led here.
        former->deleteLater();
    }
    scroller_->setWidget(content);
    content->show();
    const int scrollBar = scroller_->verticalScrollBar()->sizeHint().width();
    const QSize space = screen()->availableGeometry().size();
    const QSize wanted = content->sizeHint() + QSize(scrollBar, 0);
    setMinimumSize(wanted.boundedTo({space.width(), space.height() / 4}));
    if (wanted.height() > height() || !isVisible()) {
        resize(wanted.boundedTo({space.width(), space.height() * 3 / 4}));
    }
    focusLine(*layout, focused);
}

MenuWindow::Line MenuWindow::focusedLine() const {
    QWidget* const focused = isVisible() ? focusWidget() : nullptr;
    const QWidget* const content = scroller_->widget();
    if (focused == nullptr || content == nullptr) {
        return {};
    }
    return {content->layout()->indexOf(focused), focused->objectName()};
}

// The line of that title, or else what stands in its place.
void MenuWindow::focusLine(const QLayout& layout, const Line& line) {
    QWidget* nearest = nullptr;
    for (int i = 0; i < layout.count(); ++i) {
        QWidget* const widget = layout.itemAt(i)->widget();
        if (widget == nullptr || widget->focusPolicy() == Qt::NoFocus) {
            continue;
        }
        if (widget->objectName() == line.title) {
            nearest = widget;
            break;
        }
        if (nearest == nullptr || i <= line.index) {
            nearest = widget;
        }
    }
    if (nearest != nullptr) {
        nearest->setFocus();
    }
}

QWidget* MenuWindow::makeLine(const MenuItem& item, MenuTarget& target) {
    if (const auto* const information = std::get_if<MenuInformation>(&item)) {
        QWidget* const line = makeInformation(*information);
        line->setObjectName(qtText(information->title));
        return line;
    }
    if (const auto* const command = std::get_if<MenuCommand>(&item)) {
        QWidget* const line = makeCommand(*command, target);
        line->setObjectName(qtText(command->title));
        return line;
    }
    if (const auto* const submenu = std::get_if<MenuSubmenu>(&item)) {
        std::unique_ptr<QtMenu>& opened = submenus_[submenu->title];
        if (!opened) {
            opened = std::make_unique<QtMenu>(QtMenu::Reader::widgets);
        }
        opened->show(submenu->menu, target);
        auto* const button = new QPushButton(qtTitle(submenu->title));
        button->setObjectName(qtText(submenu->title));
        button->setMenu(&opened->widget());
        return button;
    }
    return new Separator;
}

} // namespace cadora
