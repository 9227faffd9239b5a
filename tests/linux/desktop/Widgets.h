#pragma once

#include "hosts/linux/desktop/Icons.h"
#include "linux/EventLoop.h"
#include "platform/View.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPixmap>
#include <QScrollArea>
#include <QWidget>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace cadora::test {

// Qt Widgets in a test, drawn into memory unless the environment names another platform.
class Widgets {
public:
    Widgets() : loop((application(), EventLoop())) {
        QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
        QApplication::setPalette(light());
        QApplication::setWindowIcon(applicationIcon());
    }

    EventLoop loop;

    static QPalette light() { return {QColor(0xef, 0xef, 0xef)}; }
    static QPalette dark() { return {QColor(0x2d, 0x2d, 0x30)}; }

    // For a person to look at, where the environment names a folder for pictures.
    static void savePicture(QWidget& widget, const std::string& name) {
        if (const char* const folder = std::getenv("CADORA_PICTURES")) {
            QDir().mkpath(QString::fromLocal8Bit(folder));
            widget.grab().save(QStringLiteral("%1/%2.png").arg(QString::fromLocal8Bit(folder), name.c_str()));
        }
    }

    // The widgets of a kind that can be seen, from top to bottom.
    template <class Widget> static std::vector<Widget*> visible(QWidget& window) {
        std::multimap<int, Widget*> byHeight;
        for (Widget* const widget : window.findChildren<Widget*>()) {
            if (widget->isVisible()) {
                byHeight.emplace(widget->mapTo(&window, QPoint()).y(), widget);
            }
        }
        std::vector<Widget*> found;
        for (const auto& [height, widget] : byHeight) {
            found.push_back(widget);
        }
        return found;
    }

    // Every text in the window, from top to bottom.
    static std::vector<std::string> texts(QWidget& window) {
        std::vector<std::string> result;
        for (QWidget* const widget : visible<QWidget>(window)) {
            if (const auto* const label = qobject_cast<QLabel*>(widget); label && !label->text().isEmpty()) {
                result.push_back(label->text().toStdString());
            } else if (const auto* const button = qobject_cast<QAbstractButton*>(widget)) {
                result.push_back(button->text().toStdString());
            }
        }
        return result;
    }

private:
    static QApplication& application() {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        // The pictures and sizes are not to depend on who runs the test.
        setenv("QT_STYLE_OVERRIDE", "Fusion", 0);
        static int argumentCount = 1;
        static char name[] = "test";
        static char* arguments[] = {name, nullptr};
        // Never deleted: when static objects go, what it needs of the thread has gone already.
        static auto* const instance = new QApplication(argumentCount, arguments);
        return *instance;
    }
};

} // namespace cadora::test
