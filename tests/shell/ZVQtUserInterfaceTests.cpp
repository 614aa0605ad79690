#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QDialog>
#include <QTimer>
#include <algorithm>
#include <functional>

#include "ShellTestEnvironment.h"
#include "app/ZVQtTimeActionDialogs.h"
#include "app/ZVQtUserInterface.h"
#include "core/actions/ZVTimeEditor.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

using namespace Qt::StringLiterals;

namespace {

// Runs `inspect` on the modal widget once it is up.
void whenModalAppears(const std::function<void(QWidget&)>& inspect) {
    auto poll = std::make_shared<std::function<void()>>();
    *poll = [inspect, poll] {
        if (QWidget* modal = QApplication::activeModalWidget(); modal && modal->isVisible()) {
            inspect(*modal);
        } else {
            QTimer::singleShot(10, *poll);
        }
    };
    QTimer::singleShot(10, *poll);
}

std::vector<QPushButton*> buttonsLeftToRight(QWidget& box) {
    const auto found = box.findChildren<QPushButton*>();
    std::vector<QPushButton*> buttons(found.begin(), found.end());
    buttons.erase(std::remove_if(buttons.begin(), buttons.end(), [](QPushButton* b) { return !b->isVisible(); }),
                  buttons.end());
    std::sort(buttons.begin(), buttons.end(), [](QPushButton* a, QPushButton* b) {
        return a->mapToGlobal(QPoint()).x() < b->mapToGlobal(QPoint()).x();
    });
    return buttons;
}

void pressKey(QWidget& widget, int key) {
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
    QApplication::sendEvent(&widget, &press);
}

ZVAlert alertWith(std::vector<std::string> buttons) {
    ZVAlert alert;
    alert.messageText = "Are you sure you want to reset the timer?";
    alert.informativeText = "This action cannot be undone.";
    alert.buttons = std::move(buttons);
    return alert;
}

class ZVQtUserInterfaceTest : public ::testing::Test {
protected:
    ZVQtUserInterface ui;
};

}  // namespace

TEST_F(ZVQtUserInterfaceTest, ButtonsKeepTheirOrderTheFirstIsTheDefaultAndAClickGivesItsIndex) {
    std::vector<QString> titles;
    bool firstIsDefault = false;
    QString message;
    whenModalAppears([&](QWidget& modal) {
        auto* box = qobject_cast<QMessageBox*>(&modal);
        ASSERT_NE(box, nullptr);
        message = box->text();
        for (QPushButton* button : buttonsLeftToRight(modal)) titles.push_back(button->text());
        firstIsDefault = box->defaultButton() && box->defaultButton()->text() == u"Cancel"_s;
        box->defaultButton()->click();
    });
    const auto response = ui.runModal(alertWith({"Cancel", "Quit", "Later"}));
    EXPECT_EQ(titles, (std::vector<QString>{u"Cancel"_s, u"Quit"_s, u"Later"_s}));
    EXPECT_TRUE(firstIsDefault);
    EXPECT_EQ(message, u"Are you sure you want to reset the timer?"_s);
    EXPECT_EQ(response.buttonIndex, 0);
    whenModalAppears([](QWidget& modal) { buttonsLeftToRight(modal).at(1)->click(); });
    EXPECT_EQ(ui.runModal(alertWith({"Reset", "Cancel"})).buttonIndex, 1);
}

// Without a "Cancel" Escape leaves the alert up, unless "OK" is its only button.
TEST_F(ZVQtUserInterfaceTest, EscapeAnswersTheCancelButtonWhereverItStands) {
    const std::pair<std::vector<std::string>, int> cases[] = {
        {{"Reset", "Cancel"}, 1}, {{"Cancel", "Remove"}, 0}, {{"OK"}, 0}, {{"Keep", "Remove"}, -1}};
    for (const auto& [buttons, escapeIndex] : cases) {
        bool stillUpAfterEscape = false;
        whenModalAppears([&](QWidget& modal) {
            pressKey(modal, Qt::Key_Escape);
            stillUpAfterEscape = modal.isVisible();
            if (stillUpAfterEscape) buttonsLeftToRight(modal).back()->click();
        });
        const int answer = ui.runModal(alertWith(buttons)).buttonIndex;
        EXPECT_EQ(answer, escapeIndex >= 0 ? escapeIndex : 1) << buttons.front();
        EXPECT_EQ(stillUpAfterEscape, escapeIndex < 0) << buttons.front();
    }
}

TEST_F(ZVQtUserInterfaceTest, SuppressionCheckBoxIsReported) {
    ZVAlert alert = alertWith({"OK"});
    alert.suppressionButtonTitle = "Do not show this message again";
    whenModalAppears([](QWidget& modal) {
        auto* box = modal.findChild<QCheckBox*>();
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(box->text(), u"Do not show this message again"_s);
        box->setChecked(true);
        buttonsLeftToRight(modal).at(0)->click();
    });
    EXPECT_TRUE(ui.runModal(alert).suppressionChecked);
}

TEST_F(ZVQtUserInterfaceTest, TextFieldAlertGivesTheTextOrNothing) {
    bool secureEcho = false;
    QString announced;
    whenModalAppears([&](QWidget& modal) {
        auto* field = modal.findChild<QLineEdit*>(u"alertTextField"_s);
        ASSERT_NE(field, nullptr);
        secureEcho = field->echoMode() == QLineEdit::Password;
        announced = modal.accessibleName();
        field->setText(u"Fixed the login page"_s);
        buttonsLeftToRight(modal).at(0)->click();
    });
    EXPECT_EQ(ui.runModalWithTextField(alertWith({"Post", "Cancel"}), "draft", true),
              std::optional<std::string>("Fixed the login page"));
    EXPECT_TRUE(secureEcho);
    // The prompt's message, not the window's title, names it to a screen
    // reader and to a script that meets it.
    EXPECT_EQ(announced, u"Are you sure you want to reset the timer?"_s);
    whenModalAppears([](QWidget& modal) { buttonsLeftToRight(modal).at(1)->click(); });
    EXPECT_EQ(ui.runModalWithTextField(alertWith({"Post", "Cancel"}), "draft", false), std::nullopt);
    whenModalAppears([](QWidget& modal) { pressKey(modal, Qt::Key_Escape); });
    EXPECT_EQ(ui.runModalWithTextField(alertWith({"Post", "Cancel"}), "draft", false), std::nullopt);
}

TEST_F(ZVQtUserInterfaceTest, ChoiceAlertStartsOnThePreselectedEntryAndGivesTheChosenOneOrNothing) {
    const std::vector<std::string> choices{"Design", "Development", "Testing"};
    int shownFirst = -1;
    whenModalAppears([&](QWidget& modal) {
        auto* popUp = modal.findChild<QComboBox*>(u"alertChoice"_s);
        ASSERT_NE(popUp, nullptr);
        shownFirst = popUp->currentIndex();
        popUp->setCurrentIndex(2);
        buttonsLeftToRight(modal).at(0)->click();
    });
    EXPECT_EQ(ui.runModalWithChoice(alertWith({"OK", "Cancel"}), choices, 1), std::optional<std::size_t>(2));
    EXPECT_EQ(shownFirst, 1);
    whenModalAppears([](QWidget& modal) { buttonsLeftToRight(modal).at(1)->click(); });
    EXPECT_EQ(ui.runModalWithChoice(alertWith({"OK", "Cancel"}), choices, 0), std::nullopt);
}

// An alert that comes up by itself takes no key until it has been up for a
// moment: a Return typed for another window must not answer it.
TEST_F(ZVQtUserInterfaceTest, AnAlertThatIgnoresKeysAtFirstTakesReturnOnlyAfterAMoment) {
    ZVAlert alert = alertWith({"Keep", "Remove"});
    alert.ignoresKeyPressesAtFirst = true;
    bool upAfterEarlyKeys = false;
    QElapsedTimer shown;
    qint64 answeredAfter = 0;
    whenModalAppears([&](QWidget& modal) {
        shown.start();
        QTimer::singleShot(800, &modal, [&] {
            for (int key : {Qt::Key_Return, Qt::Key_Space, Qt::Key_Escape}) {
                QWidget* target = modal.focusWidget() ? modal.focusWidget() : &modal;
                pressKey(*target, key);
            }
            upAfterEarlyKeys = modal.isVisible();
        });
        QTimer::singleShot(ZVQtUserInterface::keyGuardMilliseconds + 100, &modal, [&] {
            answeredAfter = shown.elapsed();
            pressKey(modal.focusWidget() ? *modal.focusWidget() : modal, Qt::Key_Return);
        });
    });
    EXPECT_EQ(ui.runModal(alert).buttonIndex, 0) << "Return answers the first button once keys count";
    EXPECT_TRUE(upAfterEarlyKeys) << "Return, Space and Escape at 0.8 seconds answered the alert";
    EXPECT_GE(answeredAfter, ZVQtUserInterface::keyGuardMilliseconds);
    // An ordinary alert takes Return at once.
    whenModalAppears([](QWidget& modal) { pressKey(modal, Qt::Key_Return); });
    EXPECT_EQ(ui.runModal(alertWith({"Keep", "Remove"})).buttonIndex, 0);
}

// In the time editor Left and Right step between hours, minutes and seconds
// at the edges of a field, as in one clock field.
TEST_F(ZVQtUserInterfaceTest, TimeEditorStepsBetweenItsFieldsWithLeftAndRight) {
    ZVQtTimeActionDialogs dialogs;
    ZVTimeEditor editor(ZVIntegrationProject::create());
    std::vector<QString> focused;
    whenModalAppears([&](QWidget& modal) {
        const auto current = [&] { return modal.focusWidget() ? modal.focusWidget()->objectName() : QString(); };
        auto* hours = modal.findChild<QSpinBox*>(u"hours"_s);
        hours->setFocus();
        hours->selectAll();
        for (int key : {Qt::Key_Right, Qt::Key_Right, Qt::Key_Left, Qt::Key_Left}) {
            pressKey(modal.focusWidget() ? *modal.focusWidget() : modal, key);
            focused.push_back(current());
        }
        static_cast<QDialog&>(modal).reject();
    });
    dialogs.runTimeEditor(editor);
    EXPECT_EQ(focused, (std::vector<QString>{u"minutes"_s, u"seconds"_s, u"minutes"_s, u"hours"_s}));
}
