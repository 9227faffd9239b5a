#pragma once

#include "base/URL.h"
#include "platform/View.h"

#include <QPointer>
#include <QWidget>

#include <functional>
#include <string>

class QLabel;
class QPushButton;
class QVBoxLayout;

namespace cadora {

class QtContentView;

// A small window over another one that tells how far a sign-in in the browser is. It never takes the
// keyboard. Closing it cancels the sign-in. Where the window below it closes, it stays, so that a sign-in
// that goes on can be seen and cancelled.
class SignInSheet : public QWidget {
public:
    // The anchor may be null or invisible: the sheet is in the middle of the screen then. `onCancel` is
    // called once, when the user cancels, and must not delete the sheet.
    SignInSheet(QWidget* anchor, std::function<void()> onCancel);

    // What the button beside "Cancel" is for.
    struct Choice {
        std::string title;
        std::function<void()> action;
    };

    // Nothing for the user to do.
    void showStep(const std::string& text);
    void showStep(const std::string& text, Choice choice);
    // With the address of a page that the user can copy.
    void showStep(const std::string& text, const URL& page, Choice choice);

    // Closes it for good, without cancelling anything.
    void dismiss();

protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;

private:
    class NoTarget : public ViewTarget {
        void perform(ViewAction) override {}
    };

    void update(const std::string& text, const std::string& page, Choice choice);
    void render();
    void fit();
    void place();

    QPointer<QWidget> anchor_;
    std::function<void()> onCancel_;
    std::function<void()> action_;
    NoTarget noTarget_;
    Label step_;
    QVBoxLayout* layout_;
    QtContentView* content_ = nullptr;
    QLabel* page_;
    QPushButton* button_;
    bool isDismissed_ = false;
};

} // namespace cadora
