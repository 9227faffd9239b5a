#include "hosts/linux/desktop/QtWindow.h"

#include "hosts/linux/desktop/QtColors.h"
#include "hosts/linux/desktop/QtContentView.h"
#include "linux/desktop/Widgets.h"

#include <QAccessible>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTextLayout>

#include <doctest/doctest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

class RecordingTarget : public ViewTarget {
public:
    std::vector<ViewAction> performed;
    void perform(ViewAction action) override { performed.push_back(action); }
};

class RecordingDelegate : public WindowDelegate {
public:
    int closings = 0;
    std::function<void()> onClose;
    void windowWillClose() override {
        ++closings;
        if (onClose) {
            onClose();
        }
    }
};

Label label(const char* text, double size, FontWeight weight, ColorRole role) {
    return {text, {size, weight}, role};
}

Label statusLabel(const std::string& text, ColorRole role = ColorRole::systemRed) {
    return {text, {12, FontWeight::regular}, role, Visibility::visible, 380, "status"};
}

// Every kind of view, with long and short texts.
ContentView sample() {
    Label hidden = statusLabel("");
    hidden.visibility = Visibility::hidden;
    const Stack box{6,
                    {label("How to send audio", 13, FontWeight::semibold, ColorRole::label),
                     label("Right-click a file → Services → Send to Cadora", 12, FontWeight::regular,
                           ColorRole::secondaryLabel),
                     label("Works with WAV · AIFF · MP3 · M4A · AAC · CAF · AU · FLAC", 11,
                           FontWeight::regular, ColorRole::tertiaryLabel)},
                    {14, 16, 14, 16},
                    ColorRole::windowBackground,
                    10};
    const Stack notice{4,
                       {label("You need a Cadora account to use this helper. If you don't have an account, "
                              "please download the Cadora app first.",
                              12, FontWeight::medium, ColorRole::systemRed),
                        LinkButton{"cadora.example →",
                                   ViewAction::openCadoraSite,
                                   {12, FontWeight::semibold},
                                   ColorRole::systemRed}}};
    return {
        {12,
         {ApplicationIcon{88, 88}, label("Welcome to Cadora Helper", 22, FontWeight::bold, ColorRole::label),
          label("Push audio straight to your Cadora feed.", 13, FontWeight::regular,
                ColorRole::secondaryLabel),
          Spacer{8}, box, notice, Spacer{8}, SignInWithAppleButton{ViewAction::signInTapped, 280, 40}, hidden,
          label("Cadora Helper runs quietly in your menu bar — look for the ◉ icon at the top of your "
                "screen.",
                11, FontWeight::regular, ColorRole::tertiaryLabel)}},
        {28, 32, 24, 32}};
}

struct Shown {
    Widgets widgets;
    RecordingTarget target;
    RecordingDelegate delegate;
    std::unique_ptr<QtWindow> window =
        std::make_unique<QtWindow>(WindowDescription{460, 520, "Cadora Helper"}, &delegate);

    Shown() {
        window->setContentView(sample(), target);
        window->center();
        window->makeKeyAndOrderFront();
        widgets.loop.runPending();
    }

    QWidget& widget() { return window->widget(); }
    QtContentView& content() {
        return *dynamic_cast<QtContentView*>(widget().findChild<QScrollArea*>()->widget());
    }
    QPushButton& button(const char* text) {
        for (QPushButton* const found : Widgets::visible<QPushButton>(widget())) {
            if (found->text() == QString::fromUtf8(text)) {
                return *found;
            }
        }
        throw std::runtime_error("no such button");
    }
};

// The text in the widget's own font, at the width that it has.
void requireUnclipped(QWidget& window) {
    for (QLabel* const text : Widgets::visible<QLabel>(window)) {
        if (text->text().isEmpty()) {
            continue;
        }
        CAPTURE(text->text().toStdString());
        QTextLayout lines(text->text(), text->font(), text);
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        lines.setTextOption(option);
        double height = 0;
        double width = 0;
        lines.beginLayout();
        for (QTextLine line = lines.createLine(); line.isValid(); line = lines.createLine()) {
            line.setLineWidth(text->width());
            height += line.height();
            width = std::max(width, line.naturalTextWidth());
        }
        lines.endLayout();
        CHECK(height <= text->height());
        CHECK(width <= text->width());
        // Nor does what holds it cut it off.
        for (QWidget* outer = text->parentWidget();
             outer && !qobject_cast<QScrollArea*>(outer->parentWidget()); outer = outer->parentWidget()) {
            CHECK(outer->rect().contains(QRect(text->mapTo(outer, QPoint()), text->size())));
        }
    }
    for (QPushButton* const button : Widgets::visible<QPushButton>(window)) {
        CAPTURE(button->text().toStdString());
        CHECK(button->fontMetrics().horizontalAdvance(button->text()) <= button->width());
        CHECK(button->fontMetrics().height() <= button->height());
    }
}

} // namespace

TEST_CASE("a window shows the texts of its content from top to bottom") {
    Shown shown;
    CHECK(shown.widget().windowTitle() == "Cadora Helper");
    CHECK(
        Widgets::texts(shown.widget()) ==
        std::vector<std::string>{
            "Welcome to Cadora Helper",
            "Push audio straight to your Cadora feed.",
            "How to send audio",
            "Right-click a file → Services → Send to Cadora",
            "Works with WAV · AIFF · MP3 · M4A · AAC · CAF · AU · FLAC",
            "You need a Cadora account to use this helper. If you don't have an account, please download the "
            "Cadora app first.",
            "cadora.example →",
            "Sign in with Apple",
            "Cadora Helper runs quietly in your menu bar — look for the ◉ icon at the top of your screen.",
        });
    Widgets::savePicture(shown.widget(), "welcome-light");
}

TEST_CASE("a window has the size it was given when the desktop's font is of the usual size") {
    Shown shown;
    CHECK(shown.widget().size() == QSize(460, 520));
    const auto texts = Widgets::visible<QLabel>(shown.widget());
    CHECK(texts.front()->size() == QSize(88, 88));
    CHECK(texts[1]->font().pixelSize() == 22);
    CHECK(texts[1]->font().weight() == QFont::Bold);
    CHECK(shown.button("Sign in with Apple").size() == QSize(280, 40));
    requireUnclipped(shown.widget());
}

TEST_CASE("a window grows with the desktop's font, and when the font changes while it is open") {
    Shown shown;
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 15));
    shown.widgets.loop.runPending();
    CHECK(shown.widget().width() >= 690);
    CHECK(shown.button("Sign in with Apple").size() == QSize(420, 60));
    CHECK(Widgets::visible<QLabel>(shown.widget())[1]->font().pixelSize() == 33);
    requireUnclipped(shown.widget());
    Widgets::savePicture(shown.widget(), "welcome-large-font");
}

TEST_CASE("a window that the screen can't hold scrolls") {
    Shown shown;
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 25));
    shown.widgets.loop.runPending();
    const QSize space = shown.widget().screen()->availableGeometry().size();
    CHECK(shown.widget().height() <= space.height());
    CHECK(shown.content().height() > shown.widget().height());
    requireUnclipped(shown.widget());
}

TEST_CASE("small text contrasts with its ground by 4.5 to 1, in light and in dark") {
    const Widgets widgets;
    for (const QPalette& palette :
         {Widgets::light(), Widgets::dark(), QPalette(Qt::black), QPalette(Qt::white)}) {
        const QColor ground = palette.color(QPalette::Window);
        for (const ColorRole role : {ColorRole::label, ColorRole::secondaryLabel, ColorRole::tertiaryLabel,
                                     ColorRole::systemRed, ColorRole::systemGreen}) {
            CAPTURE(ground.name().toStdString());
            CAPTURE(static_cast<int>(role));
            CHECK(contrast(color(role, palette), ground) >= 4.5);
        }
        CHECK(contrast(color(ColorRole::label, palette), ground) >
              contrast(color(ColorRole::secondaryLabel, palette), ground));
        CHECK(contrast(color(ColorRole::secondaryLabel, palette), ground) >
              contrast(color(ColorRole::tertiaryLabel, palette), ground));
        CHECK(color(ColorRole::systemRed, palette).hslHue() % 340 <= 20);
        CHECK(color(ColorRole::systemGreen, palette).hslHue() == doctest::Approx(135).epsilon(0.2));
    }
}

TEST_CASE("a window follows the desktop from light to dark while it is open") {
    Shown shown;
    QApplication::setPalette(Widgets::dark());
    shown.widgets.loop.runPending();
    const auto texts = Widgets::visible<QLabel>(shown.widget());
    CHECK(texts[1]->palette().color(QPalette::WindowText) == Widgets::dark().color(QPalette::WindowText));
    Widgets::savePicture(shown.widget(), "welcome-dark");
}

TEST_CASE("a label that changes is shown, makes room, and keeps its place when the window is drawn anew") {
    Shown shown;
    const std::string text =
        "No Cadora account found for that Apple ID. Create your account in the Cadora app "
        "first — get it at cadora.example — then sign in here.";
    shown.window->updateLabel(statusLabel(text));
    shown.widgets.loop.runPending();
    CHECK(Widgets::texts(shown.widget())[8] == text);
    requireUnclipped(shown.widget());
    Widgets::savePicture(shown.widget(), "welcome-red-status");
    QApplication::setPalette(Widgets::dark());
    shown.widgets.loop.runPending();
    CHECK(Widgets::texts(shown.widget())[8] == text);
    requireUnclipped(shown.widget());
    Widgets::savePicture(shown.widget(), "welcome-red-status-dark");
    shown.window->updateLabel(statusLabel("Signed in as musician@example.org ✓", ColorRole::systemGreen));
    shown.widgets.loop.runPending();
    Widgets::savePicture(shown.widget(), "welcome-green-status-dark");
    CHECK(shown.widget().height() == 520);
}

TEST_CASE("a word that is wider than the window is broken and not cut off") {
    Shown shown;
    shown.window->updateLabel(statusLabel("Signed in as " + std::string(120, 'w') + "@example.org ✓"));
    shown.widgets.loop.runPending();
    requireUnclipped(shown.widget());
}

TEST_CASE("a label of another identifier changes nothing") {
    Shown shown;
    const auto before = Widgets::texts(shown.widget());
    Label other = statusLabel("elsewhere");
    other.identifier = "another";
    shown.window->updateLabel(other);
    other.identifier.clear();
    shown.window->updateLabel(other);
    CHECK(Widgets::texts(shown.widget()) == before);
}

TEST_CASE("the status label is a notification to screen readers") {
    Shown shown;
    shown.window->updateLabel(statusLabel("Sign-in didn't complete. Please try again."));
    QAccessibleInterface* const status =
        QAccessible::queryAccessibleInterface(shown.widget().findChild<QLabel*>("status"));
    CHECK(status->role() == QAccessible::Notification);
    CHECK(status->text(QAccessible::Name) == "Sign-in didn't complete. Please try again.");
}

TEST_CASE("every control has a name") {
    Shown shown;
    for (QWidget* const widget : Widgets::visible<QWidget>(shown.widget())) {
        const bool tells = qobject_cast<QLabel*>(widget) || qobject_cast<QAbstractButton*>(widget);
        if (tells) {
            QAccessibleInterface* const accessible = QAccessible::queryAccessibleInterface(widget);
            CAPTURE(widget->metaObject()->className());
            CHECK_FALSE(accessible->text(QAccessible::Name).isEmpty());
        }
    }
}

TEST_CASE("the buttons do their action by mouse, space bar and return") {
    Shown shown;
    shown.button("cadora.example →").click();
    QTest::keyClick(&shown.button("Sign in with Apple"), Qt::Key_Space);
    QTest::keyClick(&shown.button("Sign in with Apple"), Qt::Key_Return);
    CHECK(shown.target.performed ==
          std::vector{ViewAction::openCadoraSite, ViewAction::signInTapped, ViewAction::signInTapped});
}

TEST_CASE("the keyboard goes from the link to the sign-in button, and shows where it is") {
    Shown shown;
    QPushButton& link = shown.button("cadora.example →");
    QPushButton& signIn = shown.button("Sign in with Apple");
    link.setFocus();
    CHECK(link.hasFocus());
    const QImage unfocused = signIn.grab().toImage();
    QTest::keyClick(&link, Qt::Key_Tab);
    CHECK(signIn.hasFocus());
    CHECK(signIn.grab().toImage() != unfocused);
    Widgets::savePicture(shown.widget(), "welcome-focus");
}

TEST_CASE("Escape and Ctrl+W close the window, which tells its delegate and can be shown again") {
    Shown shown;
    QTest::keyClick(&shown.widget(), Qt::Key_Escape);
    shown.widgets.loop.runPending();
    CHECK_FALSE(shown.widget().isVisible());
    CHECK(shown.delegate.closings == 1);
    shown.window->makeKeyAndOrderFront();
    CHECK(shown.widget().isVisible());
    shown.widgets.loop.runPending();
    QTest::keyClick(&shown.widget(), Qt::Key_W, Qt::ControlModifier);
    shown.widgets.loop.runPending();
    CHECK(shown.delegate.closings == 2);
}

TEST_CASE("ordering out hides without closing, and close closes") {
    Shown shown;
    shown.window->orderOut();
    CHECK_FALSE(shown.widget().isVisible());
    CHECK(shown.delegate.closings == 0);
    shown.window->makeKeyAndOrderFront();
    shown.window->close();
    CHECK_FALSE(shown.widget().isVisible());
    CHECK(shown.delegate.closings == 1);
}

TEST_CASE("the delegate may let go of the window that is closing") {
    Shown shown;
    QWidget* const widget = &shown.widget();
    QPointer<QWidget> alive(widget);
    shown.delegate.onClose = [&shown] { shown.window.reset(); };
    shown.widget().close();
    shown.widgets.loop.runUntil([&alive] { return !alive; });
    CHECK(shown.delegate.closings == 1);
    CHECK(alive.isNull());
}

TEST_CASE("an action may replace the content whose button was pressed") {
    Shown shown;
    class Replacing : public ViewTarget {
    public:
        explicit Replacing(QtWindow& shownWindow) : window(shownWindow) {}
        void perform(ViewAction) override { window.setContentView(sample(), *this); }
        QtWindow& window;
    } replacing(*shown.window);
    shown.window->setContentView(sample(), replacing);
    shown.button("Sign in with Apple").click();
    shown.widgets.loop.runPending();
    CHECK(Widgets::texts(shown.widget()).size() == 9);
}

TEST_CASE("a window without content is as large as it was described") {
    const Widgets widgets;
    QtWindow window({360, 120, "Sign in to Cadora"}, nullptr);
    window.makeKeyAndOrderFront();
    CHECK(window.widget().size() == QSize(360, 120));
    CHECK(Widgets::texts(window.widget()).empty());
    window.close();
}

} // namespace cadora::test
