#include "hosts/linux/desktop/QtWindow.h"

#include "hosts/linux/desktop/QtContentView.h"
#include "hosts/linux/desktop/QtText.h"
#include "hosts/linux/desktop/ShowInFront.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QCloseEvent>
#include <QPointer>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QShortcut>
#include <QVBoxLayout>

#include <algorithm>
#include <functional>
#include <utility>

namespace cadora {

namespace {

// What a window's frame and a panel may take of the screen.
constexpr int spaceForDecorations = 48;

// Replaces the value of that label, wherever it stands. False where there is none.
bool replaceLabel(Stack& stack, const Label& label) {
    return std::any_of(stack.views.begin(), stack.views.end(), [&label](View& view) {
        if (auto* const inner = std::get_if<Stack>(&view)) {
            return replaceLabel(*inner, label);
        }
        auto* const found = std::get_if<Label>(&view);
        if (found == nullptr || found->identifier != label.identifier) {
            return false;
        }
        *found = label;
        return true;
    });
}

} // namespace

class QtWindow::Frame : public QWidget {
public:
    Frame(QtWindow& owner, WindowDelegate* delegate)
        : QWidget(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                               Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint),
          owner_(&owner), delegate_(delegate) {
        auto* const layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        closeByKeys(*this);
        QAccessible::installFactory(&Frame::makeAccessible);
    }

    void leaveOwner() {
        owner_ = nullptr;
        hide();
        deleteLater();
    }

    // The content or, while there is none, null.
    QtContentView* content() const { return content_; }

    void setContent(QtContentView* content) {
        if (scroller_ == nullptr) {
            scroller_ = new QScrollArea;
            scroller_->setFrameShape(QFrame::NoFrame);
            scroller_->setWidgetResizable(true);
            scroller_->setFocusPolicy(Qt::NoFocus);
            layout()->addWidget(scroller_);
        }
        content_ = content;
        // Takes the former one away, in whose event this may be.
        if (QWidget* const former = scroller_->takeWidget()) {
            former->hide();
            former->deleteLater();
        }
        scroller_->setWidget(content);
        content->show();
        content->focusMainButton();
    }

    void fit(QSize least) {
        QSize size = least;
        if (content_) {
            size = size.expandedTo(content_->sizeHint());
        }
        const QSize space = screen()->availableGeometry().size() - QSize(0, spaceForDecorations);
        if (scroller_ && size.height() > space.height()) {
            size.rwidth() += scroller_->verticalScrollBar()->sizeHint().width();
        }
        if (scroller_) {
            const bool fits = size.width() <= space.width();
            scroller_->setHorizontalScrollBarPolicy(fits ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAsNeeded);
        }
        setFixedSize(size.boundedTo(space));
    }

protected:
    void closeEvent(QCloseEvent* event) override {
        event->accept();
        if (owner_ && delegate_) {
            delegate_->windowWillClose();
        }
    }

    bool event(QEvent* event) override {
        const bool result = QWidget::event(event);
        if (event->type() == QEvent::ApplicationFontChange ||
            event->type() == QEvent::ApplicationPaletteChange) {
            if (owner_) {
                owner_->render();
            }
        }
        return result;
    }

private:
    // To a screen reader it is a window, whose title is read when it comes to the front.
    static QAccessibleInterface* makeAccessible(const QString&, QObject* object) {
        auto* const frame = dynamic_cast<Frame*>(object);
        return frame ? new QAccessibleWidget(frame, QAccessible::Window) : nullptr;
    }

    QtWindow* owner_;
    WindowDelegate* delegate_;
    QScrollArea* scroller_ = nullptr;
    QPointer<QtContentView> content_;
};

QtWindow::QtWindow(const WindowDescription& description, WindowDelegate* delegate)
    : description_(description), frame_(new Frame(*this, delegate)) {
    frame_->setWindowTitle(qtText(description.title));
    render();
}

QtWindow::~QtWindow() {
    frame_->leaveOwner();
}

void QtWindow::center() {
    centerOnScreen(*frame_);
}

void QtWindow::makeKeyAndOrderFront() {
    if (content_) {
        showInFront(*frame_);
    }
}

void QtWindow::orderOut() {
    frame_->hide();
}

void QtWindow::close() {
    frame_->close();
}

void QtWindow::setContentView(ContentView content, ViewTarget& target) {
    content_ = std::move(content);
    target_ = &target;
    render();
}

void QtWindow::updateLabel(const Label& label) {
    if (label.identifier.empty() || !content_ || !replaceLabel(content_->stack, label)) {
        return;
    }
    frame_->content()->updateLabel(label);
    frame_->content()->layout()->activate();
    const double scale = QtContentView::pixelsPerPoint();
    frame_->fit((QSizeF(description_.contentWidth, description_.contentHeight) * scale).toSize());
}

QWidget& QtWindow::widget() {
    return *frame_;
}

void QtWindow::render() {
    const double scale = QtContentView::pixelsPerPoint();
    if (content_) {
        frame_->setContent(new QtContentView(*content_, description_.contentWidth, *target_));
    }
    frame_->fit((QSizeF(description_.contentWidth, description_.contentHeight) * scale).toSize());
}

void centerOnScreen(QWidget& window) {
    QRect frame(QPoint(0, 0), window.size());
    frame.moveCenter(window.screen()->availableGeometry().center());
    window.move(frame.topLeft());
}

void closeByKeys(QWidget& window) {
    const auto close = [&window] { window.close(); };
    QObject::connect(new QShortcut(QKeySequence(Qt::Key_Escape), &window), &QShortcut::activated, close);
    QObject::connect(new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_W), &window), &QShortcut::activated,
                     close);
}

} // namespace cadora
