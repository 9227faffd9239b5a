#include "hosts/linux/desktop/MenuWindow.h"

#include "base/UTF8.h"
#include "hosts/linux/desktop/DestructiveButton.h"
#include "hosts/linux/desktop/QtColors.h"
#include "hosts/linux/desktop/QtContentView.h"
#include "hosts/linux/desktop/QtText.h"
#include "hosts/linux/desktop/QtWindow.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QApplication>
#include <QCheckBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QStyleOptionFocusRect>
#include <QVBoxLayout>

#include <algorithm>
#include <cstddef>

namespace cadora {

namespace {

// In points of the content.
constexpr double contentWidth = 440;
constexpr double windowMargin = 18;
constexpr double boxMargin = 12;
constexpr double boxSpacing = 12;
constexpr double lineSpacing = 8;
constexpr double cornerRadius = 8;

int scaled(double points) {
    return qRound(points * QtContentView::pixelsPerPoint());
}

class Separator : public QFrame {
public:
    Separator() {
        setFrameShape(QFrame::HLine);
        setFrameShadow(QFrame::Plain);
        QPalette colors = QApplication::palette();
        colors.setColor(QPalette::WindowText,
                        blend(colors.color(QPalette::Base), colors.color(QPalette::Text), 0.15));
        setPalette(colors);
        QAccessible::installFactory(&Separator::makeAccessible);
    }

private:
    // A plain frame would be a window's to a screen reader.
    static QAccessibleInterface* makeAccessible(const QString&, QObject* object) {
        auto* const line = dynamic_cast<Separator*>(object);
        return line ? new QAccessibleWidget(line, QAccessible::Separator) : nullptr;
    }
};

enum class Ground { own, ofWindow };

// What belongs together.
class Box : public QWidget {
public:
    explicit Box(Ground ground) : ground_(ground), layout_(new QVBoxLayout(this)) {
        const int margin = ground == Ground::own ? scaled(boxMargin) : 0;
        layout_->setContentsMargins(margin, margin, margin, margin);
        layout_->setSpacing(scaled(lineSpacing));
    }

    QBoxLayout& layout() { return *layout_; }

protected:
    void paintEvent(QPaintEvent*) override {
        if (ground_ == Ground::ofWindow) {
            return;
        }
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QColor ground = palette().color(QPalette::Base);
        painter.setPen(blend(palette().color(QPalette::Window), palette().color(QPalette::WindowText), 0.15));
        painter.setBrush(ground);
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), scaled(cornerRadius),
                                scaled(cornerRadius));
    }

private:
    Ground ground_;
    QBoxLayout* layout_;
};

// Takes the keyboard only where a screen reader's user goes through the lines.
class TextLine : public QLabel {
public:
    TextLine(const std::string& text, MenuWindow::TextLook look) {
        setTextFormat(Qt::PlainText);
        const std::string drawn = shortenedInTheMiddle(text, longestMenuTitle);
        setText(qtText(drawn));
        if (drawn != text) {
            setToolTip(qtToolTip(text));
            setAccessibleName(qtText(text));
        }
        setWordWrap(true);
        setFocusPolicy(Qt::TabFocus);
        setForegroundRole(QPalette::Text);
        if (look == MenuWindow::TextLook::heading) {
            QFont bold = font();
            bold.setWeight(QFont::DemiBold);
            setFont(bold);
        }
    }

protected:
    // As buttons do.
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Up || event->key() == Qt::Key_Down) {
            focusNextPrevChild(event->key() == Qt::Key_Down);
        } else {
            QLabel::keyPressEvent(event);
        }
    }

    void paintEvent(QPaintEvent* event) override {
        QLabel::paintEvent(event);
        if (hasFocus()) {
            QPainter painter(this);
            QStyleOptionFocusRect option;
            option.initFrom(this);
            style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
        }
    }
};

// On or off at once, without anything else to press: a track with a knob, at the end of its title's line.
class Switch : public QCheckBox {
public:
    explicit Switch(const QString& title) : QCheckBox(title) { setCursor(Qt::PointingHandCursor); }

    QSize sizeHint() const override {
        const QSize title = fontMetrics().size(Qt::TextShowMnemonic, text());
        return {title.width() + scaled(lineSpacing) + track().width(),
                std::max(title.height(), track().height()) + scaled(4)};
    }

protected:
    bool hitButton(const QPoint& position) const override { return rect().contains(position); }

    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(palette().color(QPalette::Text));
        painter.drawText(rect(), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextShowMnemonic, text());
        const QColor ground = palette().color(QPalette::Base);
        const QColor off = blend(ground, palette().color(QPalette::Text), 0.5);
        const QColor on = palette().color(QPalette::Highlight);
        QRectF box(QPointF(), track());
        box.moveCenter(QPointF(width() - track().width() / 2.0, height() / 2.0));
        painter.setPen(Qt::NoPen);
        painter.setBrush(isChecked() ? on : off);
        painter.drawRoundedRect(box, box.height() / 2, box.height() / 2);
        const double gap = scaled(2);
        QRectF knob = box.adjusted(gap, gap, -gap, -gap);
        knob.setWidth(knob.height());
        if (isChecked()) {
            knob.moveRight(box.right() - gap);
        }
        painter.setBrush(Qt::white);
        painter.drawEllipse(knob);
        if (hasFocus()) {
            painter.setPen(QPen(palette().color(QPalette::Text), 1));
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(box.adjusted(-2, -2, 2, 2), box.height() / 2, box.height() / 2);
        }
    }

private:
    static QSize track() { return {scaled(34), scaled(18)}; }
};

enum class CommandLook { button, destructiveButton, choice, toggle };

CommandLook lookOf(MenuAction action) {
    switch (action) {
    case MenuAction::setVisibilityPrivate:
    case MenuAction::setVisibilityLive:
        return CommandLook::choice;
    case MenuAction::toggleMenuBarIcon:
        return CommandLook::toggle;
    case MenuAction::uninstall:
        return CommandLook::destructiveButton;
    case MenuAction::signIn:
    case MenuAction::syncNow:
    case MenuAction::signOut:
    case MenuAction::quit:
        return CommandLook::button;
    }
    return CommandLook::button;
}

// A button of whose kind Return presses as well as the space bar.
template <class Button> class Pressed : public Button {
public:
    using Button::Button;

protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
            this->click();
        } else {
            Button::keyPressEvent(event);
        }
    }
};

QAbstractButton* makeButton(const MenuCommand& command) {
    const QString title = qtTitle(command.title);
    const CommandLook look = lookOf(command.action);
    if (look == CommandLook::choice) {
        return new Pressed<QRadioButton>(title);
    }
    if (look == CommandLook::toggle) {
        return new Pressed<Switch>(title);
    }
    auto* const button = new Pressed<QPushButton>(title);
    button->setAutoDefault(false);
    if (look == CommandLook::destructiveButton) {
        markDestructive(*button);
    }
    return button;
}

QAbstractButton* makeCommand(const MenuCommand& command, MenuTarget& target) {
    QAbstractButton* const button = makeButton(command);
    const bool isOn = command.checkMark == CheckMark::on;
    if (button->isCheckable()) {
        // What is on, the menu says.
        button->setAutoExclusive(false);
        button->setChecked(isOn);
    }
    if (!command.keyEquivalent.empty()) {
        const QKeySequence keys(QStringLiteral("Ctrl+") + qtText(command.keyEquivalent).toUpper());
        button->setShortcut(keys);
        button->setToolTip(keys.toString(QKeySequence::NativeText));
    }
    QObject::connect(button, &QAbstractButton::clicked, button,
                     [button, isOn, action = command.action, &target] {
                         button->setChecked(isOn);
                         target.perform(action);
                     });
    return button;
}

bool standsInRow(const MenuItem& item) {
    const auto* const command = std::get_if<MenuCommand>(&item);
    return command != nullptr && lookOf(command->action) != CommandLook::toggle;
}

// One that only leads to the lines below it.
bool isHeading(const MenuInformation& information) {
    return information.title.ends_with(':');
}

} // namespace

MenuWindow::MenuWindow() : scroller_(new QScrollArea) {
    setWindowTitle(QApplication::applicationName() + QStringLiteral(" Menu"));
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
    lines_.clear();
    auto* const content = new QWidget;
    auto* const boxes = new QVBoxLayout(content);
    const int margin = scaled(windowMargin);
    boxes->setContentsMargins(margin, margin, margin, margin);
    boxes->setSpacing(scaled(boxSpacing));
    addBoxes(*boxes, menu, target);
    boxes->addStretch();
    if (QWidget* const former = scroller_->takeWidget()) {
        former->hide();
        // It may be the one whose button led here.
        former->deleteLater();
    }
    scroller_->setWidget(content);
    content->show();
    fit(*content);
    focusLine(focused);
}

// A separator begins a new box, and a submenu has one to itself.
void MenuWindow::addBoxes(QBoxLayout& boxes, const Menu& menu, MenuTarget& target) {
    Box* box = nullptr;
    QBoxLayout* row = nullptr;
    for (const MenuItem& item : menu) {
        const auto* const submenu = std::get_if<MenuSubmenu>(&item);
        if (std::holds_alternative<MenuSeparator>(item) || submenu != nullptr) {
            box = nullptr;
            row = nullptr;
        }
        if (submenu != nullptr) {
            auto* const own = new Box(Ground::own);
            boxes.addWidget(own);
            addSubmenu(own->layout(), *submenu, TextLook::heading, target);
        } else if (!std::holds_alternative<MenuSeparator>(item)) {
            if (box == nullptr) {
                // Buttons alone bring their own.
                box = new Box(standsInRow(item) ? Ground::ofWindow : Ground::own);
                boxes.addWidget(box);
            }
            if (!standsInRow(item)) {
                row = nullptr;
            } else if (row == nullptr) {
                row = new QHBoxLayout;
                box->layout().addLayout(row);
            }
            addItem(row != nullptr ? *row : box->layout(), item, target);
        }
    }
}

void MenuWindow::addSubmenu(QBoxLayout& box, const MenuSubmenu& submenu, TextLook look, MenuTarget& target) {
    addLine(box, new TextLine(submenu.title, look), qtText(submenu.title));
    QBoxLayout* row = nullptr;
    for (const MenuItem& item : submenu.menu) {
        if (const auto* const inner = std::get_if<MenuSubmenu>(&item)) {
            addSubmenu(box, *inner, TextLook::plain, target);
            continue;
        }
        if (!standsInRow(item)) {
            row = nullptr;
        } else if (row == nullptr) {
            row = new QHBoxLayout;
            box.addLayout(row);
        }
        addItem(row != nullptr ? *row : box, item, target);
    }
    if (row != nullptr) {
        row->addStretch();
    }
}

void MenuWindow::addItem(QBoxLayout& layout, const MenuItem& item, MenuTarget& target) {
    if (const auto* const information = std::get_if<MenuInformation>(&item)) {
        const TextLook look = isHeading(*information) ? TextLook::heading : TextLook::plain;
        addLine(layout, new TextLine(information->title, look), qtText(information->title));
    } else if (const auto* const command = std::get_if<MenuCommand>(&item)) {
        addLine(layout, makeCommand(*command, target), qtText(command->title));
    } else {
        layout.addWidget(new Separator);
    }
}

void MenuWindow::addLine(QBoxLayout& layout, QWidget* line, const QString& title) {
    line->setObjectName(title);
    layout.addWidget(line);
    lines_.push_back(line);
}

void MenuWindow::fit(const QWidget& content) {
    const QSize space = screen()->availableGeometry().size();
    QSize wanted(std::max(scaled(contentWidth), content.minimumSizeHint().width()), 0);
    wanted.setHeight(content.heightForWidth(wanted.width()));
    const int highest = space.height() * 9 / 10;
    if (wanted.height() > highest) {
        wanted = QSize(wanted.width() + scroller_->verticalScrollBar()->sizeHint().width(), highest);
    }
    setMinimumWidth(std::min(wanted.width(), space.width()));
    if (!isVisible() || wanted.height() > height()) {
        resize(wanted.boundedTo(space));
    }
}

MenuWindow::Line MenuWindow::focusedLine() const {
    QWidget* const focused = isVisible() ? focusWidget() : nullptr;
    const auto found = std::find(lines_.begin(), lines_.end(), focused);
    if (found == lines_.end()) {
        return {-1, {}};
    }
    return {static_cast<int>(found - lines_.begin()), focused->objectName()};
}

// The line of that title, or else what stands in its place; the first command where the keyboard is nowhere
// yet.
void MenuWindow::focusLine(const Line& line) {
    const auto takesKeyboard = [&](const QWidget* widget) {
        return line.index < 0 ? qobject_cast<const QAbstractButton*>(widget) != nullptr
                              : widget->objectName() == line.title;
    };
    auto found = std::find_if(lines_.begin(), lines_.end(), takesKeyboard);
    if (found == lines_.end() && !lines_.empty()) {
        const auto last = static_cast<std::ptrdiff_t>(lines_.size()) - 1;
        found = lines_.begin() + std::clamp<std::ptrdiff_t>(line.index, 0, last);
    }
    if (found != lines_.end()) {
        (*found)->setFocus();
    }
}

} // namespace cadora
