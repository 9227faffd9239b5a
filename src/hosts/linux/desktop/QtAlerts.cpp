#include "hosts/linux/desktop/QtAlerts.h"

#include "hosts/linux/desktop/DestructiveButton.h"
#include "hosts/linux/desktop/QtContentView.h"
#include "hosts/linux/desktop/QtText.h"
#include "hosts/linux/desktop/QtWindow.h"
#include "hosts/linux/desktop/ShowInFront.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>

#include <algorithm>
#include <utility>
#include <vector>

namespace cadora {

namespace {

struct Buttons {
    std::vector<QAbstractButton*> inOrder;

    int answer(const QAbstractButton* chosen) const {
        const auto found = std::find(inOrder.begin(), inOrder.end(), chosen);
        const auto index =
            found == inOrder.end() ? inOrder.size() - 1 : static_cast<std::size_t>(found - inOrder.begin());
        return Alert::firstButtonReturn + static_cast<int>(index);
    }
};

Buttons addButtons(QMessageBox& box, const Alert& alert) {
    Buttons buttons;
    for (const std::string& title : alert.buttons) {
        const bool declines = !buttons.inOrder.empty() && buttons.inOrder.size() + 1 == alert.buttons.size();
        buttons.inOrder.push_back(
            box.addButton(qtTitle(title), declines ? QMessageBox::RejectRole : QMessageBox::AcceptRole));
    }
    if (buttons.inOrder.empty()) {
        buttons.inOrder.push_back(box.addButton(QStringLiteral("OK"), QMessageBox::AcceptRole));
    }
    if (alert.style == Alert::Style::warning && buttons.inOrder.size() > 1) {
        markDestructive(static_cast<QPushButton&>(*buttons.inOrder.front()));
    }
    box.setDefaultButton(static_cast<QPushButton*>(buttons.inOrder.front()));
    box.setEscapeButton(buttons.inOrder.back());
    return buttons;
}

// The sign of danger, in the lower right quarter of the icon.
void paintWarning(QPainter& painter, double side) {
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF top(side * 0.72, side * 0.5);
    const QPointF left(side * 0.49, side * 0.92);
    const QPointF right(side * 0.95, side * 0.92);
    QPainterPath triangle(top);
    triangle.lineTo(right);
    triangle.lineTo(left);
    triangle.closeSubpath();
    const QColor amber(0xff, 0xcc, 0x00);
    const QColor ink(0x33, 0x2b, 0x00);
    const auto pen = [side](const QColor& color, double width) {
        return QPen(color, side * width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    };
    painter.strokePath(triangle, pen(ink, 0.09));
    painter.strokePath(triangle, pen(amber, 0.055));
    painter.fillPath(triangle, amber);
    painter.setPen(pen(ink, 0.055));
    painter.drawLine(QPointF(side * 0.72, side * 0.63), QPointF(side * 0.72, side * 0.76));
    painter.drawPoint(QPointF(side * 0.72, side * 0.86));
}

// An alert shows whose it is: the user may not have been at this program at all.
QPixmap icon(Alert::Style style, double ratio) {
    const int side = qRound(64 * QtContentView::pixelsPerPoint());
    QPixmap pixmap = QApplication::windowIcon().pixmap(QSize(side, side), ratio);
    if (style == Alert::Style::warning && !pixmap.isNull()) {
        QPainter painter(&pixmap);
        paintWarning(painter, side);
    }
    return pixmap;
}

// What an alert says is no mark-up, wherever it came from.
void showPlainText(QMessageBox& box, const Alert& alert) {
    box.setTextFormat(Qt::PlainText);
    box.setText(qtText(alert.messageText));
    box.setInformativeText(qtText(alert.informativeText));
    for (QLabel* const label : box.findChildren<QLabel*>()) {
        label->setTextFormat(Qt::PlainText);
    }
    if (auto* const title = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))) {
        QFont font = title->font();
        font.setBold(true);
        title->setFont(font);
    }
    if (auto* const text = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"))) {
        // Lines of a length that reads well, however short the title is.
        text->setMinimumWidth(qRound(340 * QtContentView::pixelsPerPoint()));
    }
}

} // namespace

QtAlerts::~QtAlerts() {
    delete box_;
}

CancelAction QtAlerts::run(Alert alert, Completion<int> completion) {
    const auto request = std::make_shared<Request>(Request{std::move(alert), std::move(completion)});
    requests_.push_back(request);
    if (requests_.size() == 1) {
        showNext();
    }
    return [this, request] { end(request); };
}

void QtAlerts::showNext() {
    if (requests_.empty()) {
        return;
    }
    const auto request = requests_.front();
    const Alert& alert = request->alert;
    box_ = new QMessageBox;
    box_->setWindowTitle(QGuiApplication::applicationDisplayName());
    box_->setWindowModality(Qt::ApplicationModal);
    box_->setIconPixmap(icon(alert.style, box_->devicePixelRatioF()));
    showPlainText(*box_, alert);
    const Buttons buttons = addButtons(*box_, alert);
    QObject::connect(box_, &QMessageBox::finished, box_, [this, request, buttons, box = box_] {
        const int answer = buttons.answer(box->clickedButton());
        mainActor_.post([completion = request->completion, answer] { completion(answer); });
        end(request);
    });
    showInFront(*box_);
}

void QtAlerts::end(const std::shared_ptr<Request>& request) {
    const auto found = std::find(requests_.begin(), requests_.end(), request);
    if (found == requests_.end()) {
        return;
    }
    const bool shown = found == requests_.begin();
    requests_.erase(found);
    if (shown) {
        QMessageBox* const box = std::exchange(box_, nullptr);
        box->disconnect();
        box->hide();
        box->deleteLater();
        showNext();
    }
}

} // namespace cadora
