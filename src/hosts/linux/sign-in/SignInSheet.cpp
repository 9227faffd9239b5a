#include "hosts/linux/sign-in/SignInSheet.h"

#include "hosts/linux/desktop/QtContentView.h"
#include "hosts/linux/desktop/QtText.h"
#include "hosts/linux/desktop/QtWindow.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>
#include <QWindow>

#include <algorithm>
#include <utility>

namespace cadora {

namespace {

// In points of the content.
constexpr double contentWidth = 400;
constexpr double margin = 20;
constexpr double spacing = 12;
constexpr double distanceFromTop = 56;

int scaled(double points) {
    return static_cast<int>(points * QtContentView::pixelsPerPoint());
}

} // namespace

SignInSheet::SignInSheet(QWidget* anchor, std::function<void()> onCancel)
    : QWidget(nullptr,
              Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint),
      anchor_(anchor != nullptr && anchor->isVisible() ? anchor : nullptr), onCancel_(std::move(onCancel)),
      step_{.text = {}, .font = {13, FontWeight::regular}, .color = ColorRole::label, .identifier = "step"},
      layout_(new QVBoxLayout(this)), page_(new QLabel), button_(new QPushButton) {
    step_.preferredMaxLayoutWidth = contentWidth - 2 * margin;
    setWindowTitle(QStringLiteral("Sign in to Cadora"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    closeByKeys(*this);

    page_->setTextFormat(Qt::PlainText);
    page_->setAlignment(Qt::AlignCenter);
    page_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    auto* const cancel = new QPushButton(QStringLiteral("Cancel"));
    connect(cancel, &QPushButton::clicked, this, &QWidget::close);
    connect(button_, &QPushButton::clicked, this, [this] {
        if (const auto action = action_) {
            action();
        }
    });
    auto* const buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(button_);
    buttons->addWidget(cancel);
    buttons->addStretch();
    layout_->addWidget(page_);
    layout_->addLayout(buttons);
    render();
}

void SignInSheet::showStep(const std::string& text) {
    update(text, {}, {});
}

void SignInSheet::showStep(const std::string& text, Choice choice) {
    update(text, {}, std::move(choice));
}

void SignInSheet::showStep(const std::string& text, const URL& page, Choice choice) {
    update(text, page.text(), std::move(choice));
}

void SignInSheet::dismiss() {
    isDismissed_ = true;
    onCancel_ = nullptr;
    hide();
}

void SignInSheet::closeEvent(QCloseEvent* event) {
    event->accept();
    if (const auto cancel = std::exchange(onCancel_, nullptr)) {
        cancel();
    }
}

bool SignInSheet::event(QEvent* event) {
    const bool result = QWidget::event(event);
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::ApplicationPaletteChange) {
        render();
    } else if (event->type() == QEvent::LayoutRequest) {
        fit();
    }
    return result;
}

void SignInSheet::update(const std::string& text, const std::string& page, Choice choice) {
    page_->setText(qtText(page));
    page_->setHidden(page.empty());
    button_->setText(qtTitle(choice.title));
    button_->setHidden(choice.title.empty());
    action_ = std::move(choice.action);
    if (isDismissed_) {
        return;
    }
    step_.text = text;
    if (isVisible()) {
        content_->updateLabel(step_);
        fit();
        return;
    }
    render();
    place();
    show();
}

void SignInSheet::render() {
    if (content_ != nullptr) {
        content_->hide();
        content_->deleteLater();
    }
    const int edge = scaled(margin);
    layout_->setContentsMargins(edge, edge, edge, edge);
    layout_->setSpacing(scaled(spacing));
    const ContentView view{{0, {step_}}, {}};
    content_ = new QtContentView(view, contentWidth - 2 * margin, noTarget_);
    layout_->insertWidget(0, content_);
    content_->show();
    fit();
}

void SignInSheet::fit() {
    content_->layout()->activate();
    layout_->activate();
    setFixedSize(std::max(scaled(contentWidth), layout_->sizeHint().width()), layout_->sizeHint().height());
}

void SignInSheet::place() {
    if (!anchor_) {
        centerOnScreen(*this);
        return;
    }
    winId();
    windowHandle()->setTransientParent(anchor_->windowHandle());
    const QRect below = anchor_->frameGeometry();
    const QRect space = anchor_->screen()->availableGeometry();
    const int x = below.center().x() - width() / 2;
    const int y = below.top() + scaled(distanceFromTop);
    move(std::max(space.left(), std::min(x, space.right() - width())),
         std::max(space.top(), std::min(y, space.bottom() - height())));
}

} // namespace cadora
