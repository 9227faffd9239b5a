#include "hosts/linux/desktop/QtContentView.h"

#include "hosts/linux/desktop/QtColors.h"
#include "hosts/linux/desktop/QtText.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QApplication>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QTextLayout>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace cadora {

namespace {

// The usual size of a desktop's font, and the size of the platform's body text in points of the content: the
// one is shown as the other.
constexpr double usualFontPoints = 10;
constexpr double pixelsPerInch = 96;
constexpr double pointsPerInch = 72;

int scaled(double points) {
    return static_cast<int>(std::lround(points * QtContentView::pixelsPerPoint()));
}

QFont::Weight qtWeight(FontWeight weight) {
    switch (weight) {
    case FontWeight::regular:
        return QFont::Normal;
    case FontWeight::medium:
        return QFont::Medium;
    case FontWeight::semibold:
        return QFont::DemiBold;
    case FontWeight::bold:
        return QFont::Bold;
    }
    return QFont::Normal;
}

QFont qtFont(const Font& font) {
    QFont result = QApplication::font();
    result.setPixelSize(scaled(font.pointSize));
    result.setWeight(qtWeight(font.weight));
    return result;
}

// Centred lines, broken between words, or within one that is wider than a line.
class TextLabel : public QLabel {
public:
    TextLabel(const Label& label, int availableWidth) : availableWidth_(availableWidth) {
        setTextFormat(Qt::PlainText);
        setLabel(label);
    }

    void setLabel(const Label& label) {
        setFont(qtFont(label.font));
        QPalette colors = QApplication::palette();
        colors.setColor(QPalette::WindowText, color(label.color, colors));
        setPalette(colors);
        setText(qtText(label.text));
        setVisibility(label.visibility);
        QTextLayout lines(text(), QLabel::font(), this);
        setFixedSize(lay(lines, std::min(scaled(label.preferredMaxLayoutWidth), availableWidth_)));
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setPen(palette().color(QPalette::WindowText));
        QTextLayout lines(text(), QLabel::font(), this);
        lay(lines, width());
        lines.draw(&painter, QPointF(0, 0));
    }

private:
    void setVisibility(Visibility visibility) {
        // A label that has no window yet would become one.
        if (visibility == Visibility::hidden || parentWidget() != nullptr) {
            setHidden(visibility == Visibility::hidden);
        }
    }

    // The space that the lines take within that width.
    static QSize lay(QTextLayout& lines, int width) {
        QTextOption option(Qt::AlignHCenter);
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        lines.setTextOption(option);
        qreal widest = 0;
        qreal height = 0;
        lines.beginLayout();
        for (QTextLine line = lines.createLine(); line.isValid(); line = lines.createLine()) {
            line.setLineWidth(width);
            line.setPosition(QPointF(0, height));
            height += line.height();
            widest = std::max(widest, line.naturalTextWidth());
        }
        lines.endLayout();
        return {static_cast<int>(std::ceil(widest)), static_cast<int>(std::ceil(height))};
    }

    int availableWidth_;
};

// A label whose changes screen readers announce: to them it is a notification, which is read when it appears.
class AnnouncingLabel : public TextLabel {
public:
    using TextLabel::TextLabel;

    void announce() {
        if (isVisible()) {
            QAccessibleEvent gone(this, QAccessible::ObjectHide);
            QAccessible::updateAccessibility(&gone);
            QAccessibleEvent there(this, QAccessible::ObjectShow);
            QAccessible::updateAccessibility(&there);
        }
    }
};

class AccessibleNotification : public QAccessibleWidget {
public:
    explicit AccessibleNotification(AnnouncingLabel* label)
        : QAccessibleWidget(label, QAccessible::Notification), label_(label) {}

    QString text(QAccessible::Text kind) const override {
        return kind == QAccessible::Name ? label_->text() : QString();
    }

private:
    AnnouncingLabel* label_;
};

QAccessibleInterface* makeAccessible(const QString&, QObject* object) {
    auto* const label = dynamic_cast<AnnouncingLabel*>(object);
    return label ? new AccessibleNotification(label) : nullptr;
}

// A button that draws itself. Return presses it as well as the space bar.
class DrawnButton : public QPushButton {
public:
    DrawnButton(const QString& title, ViewAction action, ViewTarget& target) : QPushButton(title) {
        setFocusPolicy(Qt::StrongFocus);
        setCursor(Qt::PointingHandCursor);
        connect(this, &QPushButton::clicked, this, [action, &target] { target.perform(action); });
    }

protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
            click();
        } else {
            QPushButton::keyPressEvent(event);
        }
    }
};

class TextButton : public DrawnButton {
public:
    TextButton(const LinkButton& button, ViewTarget& target)
        : DrawnButton(qtTitle(button.title), button.action, target), title_(qtText(button.title)) {
        setFont(qtFont(button.font));
        QPalette colors = QApplication::palette();
        colors.setColor(QPalette::ButtonText, color(button.tint, colors));
        setPalette(colors);
        setAccessibleName(title_);
        const int margin = scaled(4);
        setFixedSize(fontMetrics().size(Qt::TextSingleLine, title_) + QSize(2 * margin, margin));
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(palette().color(QPalette::ButtonText));
        QFont font = QPushButton::font();
        font.setUnderline(underMouse() || isDown());
        painter.setFont(font);
        painter.drawText(rect(), Qt::AlignCenter | Qt::TextSingleLine, title_);
        if (hasFocus()) {
            painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), scaled(4), scaled(4));
        }
    }

private:
    QString title_;
};

class BlackButton : public DrawnButton {
public:
    BlackButton(const SignInWithAppleButton& button, ViewTarget& target)
        : DrawnButton(QStringLiteral("Sign in with Apple"), button.action, target) {
        // The usual proportion of a button's text to its height.
        setFont(qtFont(Font{button.height * 0.43, FontWeight::medium}));
        setFixedSize(scaled(button.width), scaled(button.height));
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QColor ground = palette().color(QPalette::Window);
        const QColor ink = palette().color(QPalette::WindowText);
        const double radius = scaled(6);
        // On a dark ground the edge shows where the button ends.
        const QColor edge = blend(ground, ink, 0.4);
        painter.setPen(contrast(ground, Qt::black) < 3 ? QPen(edge, 1) : QPen(Qt::black, 1));
        painter.setBrush(isDown() ? QColor(0x33, 0x33, 0x33) : QColor(Qt::black));
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
        if (hasFocus()) {
            // Within the black, on which it is seen whatever the ground.
            const double gap = scaled(3);
            painter.setPen(QPen(Qt::white, scaled(1.5)));
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(QRectF(rect()).adjusted(gap, gap, -gap, -gap), radius - gap / 2,
                                    radius - gap / 2);
        }
        painter.setPen(Qt::white);
        painter.drawText(rect(), Qt::AlignCenter | Qt::TextSingleLine, text());
    }
};

// A stack with a ground of its own.
class Box : public QWidget {
public:
    Box(ColorRole background, double cornerRadius) : background_(background), cornerRadius_(cornerRadius) {}

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QColor ground = color(background_, palette());
        // The window has the same ground, so that without an edge there would be no box to see.
        painter.setPen(blend(ground, palette().color(QPalette::WindowText), 0.15));
        painter.setBrush(ground);
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), scaled(cornerRadius_),
                                scaled(cornerRadius_));
    }

private:
    ColorRole background_;
    double cornerRadius_;
};

class Renderer {
public:
    explicit Renderer(ViewTarget& target) : target_(target) {}

    QWidget* render(const View& view, int width) const {
        return std::visit([&](const auto& v) { return render(v, width); }, static_cast<const Variant&>(view));
    }

    void fill(QWidget& widget, const Stack& stack, int width) const {
        auto* const layout = new QVBoxLayout(&widget);
        const EdgeInsets& insets = stack.edgeInsets;
        layout->setContentsMargins(scaled(insets.left), scaled(insets.top), scaled(insets.right),
                                   scaled(insets.bottom));
        layout->setSpacing(scaled(stack.spacing));
        const int inner = width - scaled(insets.left) - scaled(insets.right);
        for (const View& view : stack.views) {
            layout->addWidget(render(view, inner), 0, Qt::AlignHCenter);
        }
    }

private:
    using Variant = std::variant<Label, ApplicationIcon, Spacer, LinkButton, SignInWithAppleButton, Stack>;

    static QWidget* render(const Label& label, int width) {
        if (label.identifier.empty()) {
            return new TextLabel(label, width);
        }
        auto* const widget = new AnnouncingLabel(label, width);
        widget->setObjectName(qtText(label.identifier));
        return widget;
    }

    static QWidget* render(const ApplicationIcon& icon, int) {
        auto* const widget = new QLabel;
        const QSize size(scaled(icon.width), scaled(icon.height));
        widget->setPixmap(QApplication::windowIcon().pixmap(size, qApp->devicePixelRatio()));
        widget->setFixedSize(size);
        widget->setAlignment(Qt::AlignCenter);
        widget->setAccessibleName(QApplication::applicationDisplayName());
        return widget;
    }

    static QWidget* render(const Spacer& spacer, int) {
        auto* const widget = new QWidget;
        widget->setFixedSize(1, scaled(spacer.height));
        return widget;
    }

    QWidget* render(const LinkButton& button, int) const { return new TextButton(button, target_); }

    QWidget* render(const SignInWithAppleButton& button, int) const {
        return new BlackButton(button, target_);
    }

    QWidget* render(const Stack& stack, int width) const {
        QWidget* const widget =
            stack.background ? new Box(*stack.background, stack.cornerRadius) : new QWidget;
        fill(*widget, stack, width);
        return widget;
    }

    ViewTarget& target_;
};

} // namespace

double QtContentView::pixelsPerPoint() {
    const QFont font = QApplication::font();
    const double usual = usualFontPoints * pixelsPerInch / pointsPerInch;
    const double pixels =
        font.pointSizeF() > 0 ? font.pointSizeF() * pixelsPerInch / pointsPerInch : font.pixelSize();
    return std::max(1.0, pixels / usual);
}

QtContentView::QtContentView(const ContentView& content, double contentWidth, ViewTarget& target) {
    QAccessible::installFactory(makeAccessible);
    Stack stack = content.stack;
    EdgeInsets& insets = stack.edgeInsets;
    insets.top += content.margins.top;
    insets.left += content.margins.left;
    insets.bottom += content.margins.bottom;
    insets.right += content.margins.right;
    Renderer(target).fill(*this, stack, scaled(contentWidth));
    // The space that is left over stays below.
    static_cast<QVBoxLayout*>(layout())->addStretch();
}

void QtContentView::focusMainButton() {
    for (QPushButton* const button : findChildren<QPushButton*>()) {
        if (dynamic_cast<BlackButton*>(button)) {
            button->setFocus();
        }
    }
}

void QtContentView::updateLabel(const Label& label) {
    if (label.identifier.empty()) {
        return;
    }
    if (auto* const widget = dynamic_cast<AnnouncingLabel*>(findChild<QLabel*>(qtText(label.identifier)))) {
        widget->setLabel(label);
        widget->announce();
    }
}

} // namespace cadora
