#include "hosts/linux/Icons.h"

#include <QApplication>
#include <QIconEngine>
#include <QImage>
#include <QPainter>
#include <QPalette>
#include <QStandardPaths>

#include <algorithm>
#include <array>

// Outside the namespace, as Qt asks.
static void initializeIcons() {
    Q_INIT_RESOURCE(icons);
}

namespace cadora {

namespace {

constexpr const char* iconName = "cadora-helper-symbolic";

bool isInstalled() {
    const auto find = [](const char* folder) {
        return QStandardPaths::locate(QStandardPaths::GenericDataLocation,
                                      QStringLiteral("icons/hicolor/%1/apps/%2.svg").arg(folder, iconName));
    };
    return !find("symbolic").isEmpty() || !find("scalable").isEmpty();
}

// The drawing, of which only the coverage counts, in the size or larger.
QImage drawing(int size) {
    constexpr std::array sizes{16, 22, 24, 32, 48, 64};
    const auto* const found = std::lower_bound(sizes.begin(), sizes.end(), size);
    return QImage(QStringLiteral(":/cadora/status-%1.png").arg(found == sizes.end() ? sizes.back() : *found));
}

QImage tinted(QImage image, const QColor& color) {
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), color);
    return image;
}

class StatusIconEngine : public QIconEngine {
public:
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override {
        const double ratio = painter->device()->devicePixelRatioF();
        const int side = qRound(std::min(rect.width(), rect.height()) * ratio);
        if (side <= 0) {
            return;
        }
        const QImage image = drawing(side)
                                 .convertToFormat(QImage::Format_ARGB32_Premultiplied)
                                 .scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        const QPalette palette = QApplication::palette();
        const QImage edge = tinted(image, palette.color(QPalette::Window));
        const double width = std::max(1.0, side / 22.0) / ratio;
        QRectF place(0, 0, side / ratio - 2 * width, side / ratio - 2 * width);
        place.moveCenter(QRectF(rect).center());
        painter->save();
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        for (const int x : {-1, 0, 1}) {
            for (const int y : {-1, 0, 1}) {
                painter->drawImage(place.translated(x * width, y * width), edge);
            }
        }
        painter->drawImage(place, tinted(image, palette.color(QPalette::WindowText)));
        painter->restore();
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(0, 0), size), mode, state);
        return pixmap;
    }

    QIconEngine* clone() const override { return new StatusIconEngine(*this); }
    QString iconName() override { return name_; }

private:
    QString name_ = isInstalled() ? QString::fromLatin1(cadora::iconName) : QString();
};

} // namespace

QIcon applicationIcon() {
    initializeIcons();
    QIcon icon;
    for (const int size : {16, 32, 48, 88, 128, 176, 256}) {
        icon.addFile(QStringLiteral(":/cadora/application-%1.png").arg(size), QSize(size, size));
    }
    return icon;
}

QIcon statusIcon() {
    initializeIcons();
    return QIcon(new StatusIconEngine);
}

} // namespace cadora
