// cadora-alert TEXT: shows the text in a dialog and ends when it was read. The sender stays free of a toolkit
// this way, and loads one only to say what went wrong.

#include <QApplication>
#include <QIcon>
#include <QMessageBox>

int main(int argc, char** argv) {
    QString text;
    if (argc > 1) {
        text = QString::fromUtf8(argv[1]);
    }
    // The text is no option, and none is meant for Qt.
    int argumentCount = 1;
    const QApplication application(argumentCount, argv);
    QApplication::setApplicationName(QStringLiteral("Cadora Helper"));
    QApplication::setDesktopFileName(QStringLiteral("com.norvelant.cadora.mac"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("cadora-helper")));

    QMessageBox box(QMessageBox::Warning, QStringLiteral("Cadora Helper"), text, QMessageBox::Ok);
    box.setTextFormat(Qt::PlainText);
    box.exec();
    return 0;
}
