// cadora-alert TEXT: shows the text in a dialog and ends when it was read, or in a notification where no
// dialog can be shown. The sender stays free of a toolkit this way, and loads one only to say what went
// wrong.

#include "hosts/linux/desktop/Display.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QIcon>
#include <QMessageBox>

namespace {

const QString name = QStringLiteral("Cadora Helper");

void notify(const QString& text) {
    const QString service = QStringLiteral("org.freedesktop.Notifications");
    QDBusMessage message = QDBusMessage::createMethodCall(
        service, QStringLiteral("/org/freedesktop/Notifications"), service, QStringLiteral("Notify"));
    const quint32 replacesNothing = 0;
    const int serverDecidesHowLong = -1;
    message << name << replacesNothing << QStringLiteral("cadora-helper") << name << text.toHtmlEscaped()
            << QStringList() << QVariantMap() << serverDecidesHowLong;
    QDBusConnection::sessionBus().call(message);
}

} // namespace

int main(int argc, char** argv) {
    QString text;
    if (argc > 1) {
        text = QString::fromUtf8(argv[1]);
    }
    // The text is no option, and none is meant for Qt.
    int argumentCount = 1;
    if (cadora::findDisplay() == cadora::Display::absent) {
        const QCoreApplication application(argumentCount, argv);
        notify(text);
        return 0;
    }
    const QApplication application(argumentCount, argv);
    QApplication::setApplicationName(name);
    QApplication::setDesktopFileName(QStringLiteral("com.norvelant.cadora.mac"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("cadora-helper")));

    QMessageBox box(QMessageBox::Warning, name, text, QMessageBox::Ok);
    box.setTextFormat(Qt::PlainText);
    box.exec();
    return 0;
}
