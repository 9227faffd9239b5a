#include "hosts/linux/MenuWindow.h"

#include "hosts/linux/QtText.h"
#include "hosts/linux/QtWindow.h"

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

QWidget* makeSeparator() {
    auto* const line = new QFrame;
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

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
    const QWidget* const focused = focusWidget();
    const QString focusedLine = focused ? focused->objectName() : QString();
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
    if (auto* const line = focusedLine.isEmpty() ? nullptr : content->findChild<QWidget*>(focusedLine)) {
        line->setFocus();
    }
}

QWidget* MenuWindow::makeLine(const MenuItem& item, MenuTarget& target) {
    if (const auto* const information = std::get_if<MenuInformation>(&item)) {
        return makeInformation(*information);
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
    return makeSeparator();
}

} // namespace cadora
