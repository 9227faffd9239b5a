#include "hosts/linux/desktop/MenuWindow.h"

#include "hosts/linux/desktop/QtColors.h"
#include "hosts/linux/desktop/QtText.h"
#include "hosts/linux/desktop/QtWindow.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QApplication>
#include <QFrame>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QStyleOptionMenuItem>
#include <QVBoxLayout>

#include <algorithm>

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

// A line as the desktop's style draws a menu's, so that this is the same menu in another place.
QStyleOptionMenuItem menuItem(const QWidget& line, const QString& text) {
    QStyleOptionMenuItem option;
    option.initFrom(&line);
    option.state.setFlag(QStyle::State_Selected, line.hasFocus());
    option.state.setFlag(QStyle::State_HasFocus, false);
    option.menuItemType = QStyleOptionMenuItem::Normal;
    option.checkType = QStyleOptionMenuItem::NotCheckable;
    option.font = line.font();
    option.text = text;
    option.reservedShortcutWidth =
        line.fontMetrics().horizontalAdvance(text.section(QLatin1Char('\t'), 1, 1));
    option.menuRect = line.rect();
    option.palette.setColor(QPalette::Window, line.palette().color(QPalette::Window));
    return option;
}

QSize menuItemSize(const QWidget& line, const QString& text) {
    const QStyleOptionMenuItem option = menuItem(line, text);
    const QFontMetrics metrics = line.fontMetrics();
    const int title = metrics.size(Qt::TextShowMnemonic, text.section(QLatin1Char('\t'), 0, 0)).width();
    const QSize content(title + option.reservedShortcutWidth + 2 * metrics.averageCharWidth(),
                        metrics.height());
    return line.style()->sizeFromContents(QStyle::CT_MenuItem, &option, content, &line);
}

class InformationLine : public QLabel {
public:
    explicit InformationLine(const MenuInformation& information) : text_(qtTitle(information.title)) {
        setTextFormat(Qt::PlainText);
        setText(qtText(information.title));
        setFocusPolicy(Qt::StrongFocus);
        setMouseTracking(true);
    }

    QSize sizeHint() const override { return menuItemSize(*this, text_); }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        QStyleOptionMenuItem option = menuItem(*this, text_);
        const QColor quiet = color(ColorRole::tertiaryLabel, palette());
        for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
            option.palette.setColor(role, quiet);
        }
        style()->drawControl(QStyle::CE_MenuItem, &option, &painter, this);
    }

    void mouseMoveEvent(QMouseEvent*) override { setFocus(Qt::MouseFocusReason); }

    // As buttons do.
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Up || event->key() == Qt::Key_Down) {
            focusNextPrevChild(event->key() == Qt::Key_Down);
        } else {
            QLabel::keyPressEvent(event);
        }
    }

private:
    QString text_;
};

class MenuLine : public QPushButton {
public:
    MenuLine(const QString& title, const QString& keys, CheckMark checkMark) : QPushButton(title) {
        setAutoDefault(false);
        setMouseTracking(true);
        setCheckable(checkMark == CheckMark::on);
        setChecked(checkMark == CheckMark::on);
        if (!keys.isEmpty()) {
            setShortcut(QKeySequence(keys));
            text_ = title + QLatin1Char('\t') + keys;
        } else {
            text_ = title;
        }
    }

    QSize sizeHint() const override { return menuItemSize(*this, text_); }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        QStyleOptionMenuItem option = menuItem(*this, text_);
        option.state.setFlag(QStyle::State_Sunken, isDown());
        if (menu()) {
            option.menuItemType = QStyleOptionMenuItem::SubMenu;
        }
        if (isCheckable()) {
            option.checkType = QStyleOptionMenuItem::NonExclusive;
            option.menuHasCheckableItems = true;
            option.checked = isChecked();
        }
        style()->drawControl(QStyle::CE_MenuItem, &option, &painter, this);
    }

    // One line is chosen at a time, as in a menu, by the pointer or by the keys: by a pointer that moves, not
    // by one that rests where the window appears.
    void mouseMoveEvent(QMouseEvent* event) override {
        setFocus(Qt::MouseFocusReason);
        QPushButton::mouseMoveEvent(event);
    }

    void keyPressEvent(QKeyEvent* event) override {
        const bool chooses = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
        if (menu() && (chooses || event->key() == Qt::Key_Right)) {
            showMenu();
        } else if (chooses) {
            click();
        } else {
            QPushButton::keyPressEvent(event);
        }
    }

private:
    QString text_;
};

QWidget* makeCommand(const MenuCommand& command, MenuTarget& target) {
    const QString keys = command.keyEquivalent.empty()
                             ? QString()
                             : QStringLiteral("Ctrl+") + qtText(command.keyEquivalent).toUpper();
    auto* const line = new MenuLine(qtTitle(command.title), keys, command.checkMark);
    QObject::connect(line, &QPushButton::clicked, line, [line, action = command.action, &target] {
        line->setChecked(line->isCheckable());
        target.perform(action);
    });
    return line;
}

} // namespace

MenuWindow::MenuWindow() : scroller_(new QScrollArea) {
    setWindowTitle(QApplication::applicationName());
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    scroller_->setFrameShape(QFrame::NoFrame);
    scroller_->setWidgetResizable(true);
    scroller_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroller_->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(scroller_);
    closeByKeys(*this);
}

void MenuWindow::showMenu(const Menu& menu, MenuTarget& target) {
    const Line focused = focusedLine();
    auto* const content = new QWidget;
    auto* const layout = new QVBoxLayout(content);
    layout->setSpacing(0);
    const int margin = style()->pixelMetric(QStyle::PM_LayoutTopMargin) / 2;
    layout->setContentsMargins(0, margin, 0, margin);
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
    const QSize space = screen()->availableGeometry().size();
    QSize wanted = content->sizeHint();
    const int highest = space.height() * 3 / 4;
    if (wanted.height() > highest) {
        wanted = QSize(wanted.width() + scroller_->verticalScrollBar()->sizeHint().width(), highest);
    }
    setMinimumWidth(std::min(wanted.width(), space.width()));
    if (!isVisible() || wanted.height() > height()) {
        resize(wanted.boundedTo(space));
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
        auto* const line = new InformationLine(*information);
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
        auto* const button = new MenuLine(qtTitle(submenu->title), {}, CheckMark::off);
        button->setObjectName(qtText(submenu->title));
        button->setMenu(&opened->widget());
        return button;
    }
    return new Separator;
}

} // namespace cadora
