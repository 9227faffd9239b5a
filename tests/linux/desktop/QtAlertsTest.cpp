#include "hosts/linux/desktop/QtAlerts.h"

#include "hosts/linux/system/QtMainActor.h"
#include "linux/desktop/Widgets.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTest>

#include <doctest/doctest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

struct Fixture {
    Widgets widgets;
    QtMainActor mainActor;
    QtAlerts alerts{mainActor};
    std::vector<int> answers;

    CancelAction run(Alert alert) {
        return alerts.run(std::move(alert),
                          [this](Result<int> result) { answers.push_back(std::get<int>(result)); });
    }

    static std::vector<QMessageBox*> boxes() {
        std::vector<QMessageBox*> found;
        for (QWidget* const widget : QApplication::topLevelWidgets()) {
            if (auto* const box = qobject_cast<QMessageBox*>(widget); box && box->isVisible()) {
                found.push_back(box);
            }
        }
        return found;
    }

    static QMessageBox& box() {
        REQUIRE(boxes().size() == 1);
        return *boxes().front();
    }

    static QAbstractButton& button(const char* text) {
        for (QAbstractButton* const found : box().buttons()) {
            if (found->text() == QString::fromUtf8(text)) {
                return *found;
            }
        }
        throw std::runtime_error("no such button");
    }
};

Alert uninstall() {
    return {
        "Uninstall Cadora Helper?", "This signs you out.", {"Uninstall", "Cancel"}, Alert::Style::warning};
}

} // namespace

TEST_CASE("an alert shows its texts, its buttons in order and its style") {
    Fixture fixture;
    fixture.run(uninstall());
    fixture.widgets.loop.runPending();
    QMessageBox& box = fixture.box();
    CHECK(box.text() == "Uninstall Cadora Helper?");
    CHECK(box.informativeText() == "This signs you out.");
    CHECK(box.buttons().size() == 2);
    CHECK(box.defaultButton() == &fixture.button("Uninstall"));
    CHECK(box.escapeButton() == &fixture.button("Cancel"));
    Widgets::savePicture(box, "alert");
}

TEST_CASE("an alert shows the program's icon, with a sign on it when it warns") {
    Fixture fixture;
    QPixmap green(128, 128);
    green.fill(Qt::green);
    QApplication::setWindowIcon(green);
    fixture.run({"Cadora Helper icon hidden", "It keeps running."});
    const QImage plain = fixture.box().iconPixmap().toImage();
    REQUIRE_FALSE(plain.isNull());
    CHECK(plain.pixelColor(plain.width() * 3 / 4, plain.height() * 3 / 4) == QColor(Qt::green));
    fixture.box().close();
    fixture.widgets.loop.runPending();
    fixture.run(uninstall());
    const QImage warning = fixture.box().iconPixmap().toImage();
    CHECK(warning.pixelColor(1, 1) == QColor(Qt::green));
    CHECK(warning.pixelColor(warning.width() * 3 / 4, warning.height() * 3 / 4) != QColor(Qt::green));
    QApplication::setWindowIcon({});
}

TEST_CASE("each button answers with its number, once, and not within the press") {
    Fixture fixture;
    fixture.run(uninstall());
    fixture.button("Uninstall").click();
    CHECK(fixture.answers.empty());
    fixture.widgets.loop.runPending();
    fixture.run(uninstall());
    fixture.button("Cancel").click();
    fixture.widgets.loop.runPending();
    CHECK(fixture.answers == std::vector{1000, 1001});
    CHECK(Fixture::boxes().empty());
}

TEST_CASE("return presses the first button, Escape the last, and so does closing the box") {
    Fixture fixture;
    fixture.run(uninstall());
    QTest::keyClick(&fixture.box(), Qt::Key_Return);
    fixture.widgets.loop.runPending();
    fixture.run(uninstall());
    QTest::keyClick(&fixture.box(), Qt::Key_Escape);
    fixture.widgets.loop.runPending();
    fixture.run(uninstall());
    fixture.box().close();
    fixture.widgets.loop.runPending();
    CHECK(fixture.answers == std::vector{1000, 1001, 1001});
}

TEST_CASE("an alert without buttons has one, which every way out answers") {
    Fixture fixture;
    fixture.run({"Cadora Helper icon hidden", "It keeps running."});
    CHECK(fixture.box().buttons().size() == 1);
    QTest::keyClick(&fixture.box(), Qt::Key_Escape);
    fixture.widgets.loop.runPending();
    CHECK(fixture.answers == std::vector{1000});
}

TEST_CASE("a second alert waits for the first") {
    Fixture fixture;
    fixture.run({"first", ""});
    fixture.run({"second", ""});
    CHECK(fixture.box().text() == "first");
    fixture.box().close();
    fixture.widgets.loop.runPending();
    CHECK(fixture.box().text() == "second");
    CHECK(fixture.answers.size() == 1);
    fixture.box().close();
    fixture.widgets.loop.runPending();
    CHECK(fixture.answers.size() == 2);
}

TEST_CASE("an alert that is called off closes without an answer, on the screen or waiting") {
    Fixture fixture;
    const CancelAction first = fixture.run({"first", ""});
    const CancelAction second = fixture.run({"second", ""});
    fixture.run({"third", ""});
    second();
    first();
    first();
    fixture.widgets.loop.runPending();
    CHECK(fixture.box().text() == "third");
    CHECK(fixture.answers.empty());
}

TEST_CASE("what an alert says is not mark-up") {
    Fixture fixture;
    const std::string text = "<b>bold</b> & <img src=x>";
    fixture.run({text, text, {"Yes & no"}});
    for (const QLabel* const label : Widgets::visible<QLabel>(fixture.box())) {
        if (!label->text().isEmpty()) {
            CHECK(label->textFormat() == Qt::PlainText);
            CHECK(label->text().toStdString() == text);
        }
    }
    CHECK(fixture.button("Yes && no").isVisible());
}

TEST_CASE("the main actor goes on while an alert is open") {
    Fixture fixture;
    fixture.run(uninstall());
    bool ran = false;
    fixture.mainActor.post([&ran] { ran = true; });
    CHECK(fixture.widgets.loop.runUntil([&ran] { return ran; }));
    CHECK(Fixture::boxes().size() == 1);
}

} // namespace cadora::test
