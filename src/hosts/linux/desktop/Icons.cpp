#include "hosts/linux/desktop/Icons.h"

#include <QApplication>
#include <QIconEngine>
#include <QImage>
#include <QImageReader>
#include <QList>
#include <QPainter>
#include <QPalette>
#include <QStandardPaths>

#include <algorithm>
#include <array>
#include <cstddef>

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

constexpr std::array applicationSizes{16, 32, 48, 88, 128, 176, 256};
constexpr std::array statusSizes{16, 22, 24, 32, 48, 64};

// The drawing in the size or larger. Its format is given, since Qt loads every plugin to look for one.
template <std::size_t count> QImage drawing(const char* name, const std::array<int, count>& sizes, int size) {
    const auto* const found = std::lower_bound(sizes.begin(), sizes.end(), size);
    const int nearest = found == sizes.end() ? sizes.back() : *found;
    QImageReader reader(QStringLiteral(":/cadora/%1-%2.png").arg(QLatin1String(name)).arg(nearest), "png");
    reader.setAutoDetectImageFormat(false);
    return reader.read();
}

QImage tinted(QImage image, const QColor& color) {
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), color);
    return image;
}

// An icon that is drawn when it is asked for.
class DrawnIconEngine : public QIconEngine {
public:
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(0, 0), size), mode, state);
        return pixmap;
    }
};

class ApplicationIconEngine : public DrawnIconEngine {
public:
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override {
        const double ratio = painter->device()->devicePixelRatioF();
        const int side = std::min(rect.width(), rect.height());
        QRect place(0, 0, side, side);
        place.moveCenter(rect.center());
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        painter->drawImage(place, drawing("application", applicationSizes, qRound(side * ratio)));
    }

    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
        QList<QSize> sizes;
        for (const int size : applicationSizes) {
            sizes.append(QSize(size, size));
        }
        return sizes;
    }

    QIconEngine* clone() const override { return new ApplicationIconEngine(*this); }
};

class StatusIconEngine : public DrawnIconEngine {
public:
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override {
        const double ratio = painter->device()->devicePixelRatioF();
        const int side = qRound(std::min(rect.width(), rect.height()) * ratio);
        if (side <= 0) {
            return;
        }
        // Of this drawing only the coverage counts.
        const QImage image = drawing("status", statusSizes, side)
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

    QIconEngine* clone() const override { return new StatusIconEngine(*this); }
    QString iconName() override { return name_; }

private:
    QString name_ = isInstalled() ? QString::fromLatin1(cadora::iconName) : QString();
};

} // namespace

QIcon applicationIcon() {
    initializeIcons();
    return QIcon(new ApplicationIconEngine);
}

QIcon statusIcon() {
    initializeIcons();
    return QIcon(new StatusIconEngine);
}

} // namespace cadora
