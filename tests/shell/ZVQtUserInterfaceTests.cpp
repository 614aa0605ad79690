#include <QCheckBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <algorithm>
#include <functional>

#include "ShellTestEnvironment.h"
#include "app/ZVQtUserInterface.h"

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

}  // namespace

TEST(ZVQtUserInterface, ButtonsKeepTheirOrderAndTheFirstIsTheDefault) {
    shellApplication();
    ZVQtUserInterface ui;
    std::vector<QString> titles;
    bool firstIsDefault = false;
    QString message;
    whenModalAppears([&](QWidget& modal) {
        auto* box = qobject_cast<QMessageBox*>(&modal);
        ASSERT_NE(box, nullptr);
        message = box->text();
        for (QPushButton* button : buttonsLeftToRight(modal)) titles.push_back(button->text());
        firstIsDefault = box->defaultButton() && box->defaultButton()->text() == QStringLiteral("Cancel");
        box->defaultButton()->click();
    });
    const auto response = ui.runModal(alertWith({"Cancel", "Quit", "Later"}));
    EXPECT_EQ(titles, (std::vector<QString>{QStringLiteral("Cancel"), QStringLiteral("Quit"), QStringLiteral("Later")}));
    EXPECT_TRUE(firstIsDefault);
    EXPECT_EQ(message, QStringLiteral("Are you sure you want to reset the timer?"));
    EXPECT_EQ(response.buttonIndex, 0);
}

TEST(ZVQtUserInterface, ClickedButtonGivesItsIndex) {
    shellApplication();
    ZVQtUserInterface ui;
    whenModalAppears([](QWidget& modal) { buttonsLeftToRight(modal).at(1)->click(); });
    EXPECT_EQ(ui.runModal(alertWith({"Reset", "Cancel"})).buttonIndex, 1);
}

TEST(ZVQtUserInterface, EscapeAnswersTheCancelButtonWhereverItStands) {
    struct Case {
        std::vector<std::string> buttons;
        int expected;
    };
    const Case cases[] = {
        {{"Reset", "Cancel"}, 1},
        {{"Cancel", "Remove"}, 0},
        {{"OK"}, 0},
    };
    shellApplication();
    ZVQtUserInterface ui;
    for (const Case& c : cases) {
        whenModalAppears([](QWidget& modal) { pressKey(modal, Qt::Key_Escape); });
        EXPECT_EQ(ui.runModal(alertWith(c.buttons)).buttonIndex, c.expected) << c.buttons.front();
    }
}

TEST(ZVQtUserInterface, EscapeWithoutACancelButtonLeavesTheAlertUp) {
    shellApplication();
    ZVQtUserInterface ui;
    bool stillUpAfterEscape = false;
    whenModalAppears([&](QWidget& modal) {
        pressKey(modal, Qt::Key_Escape);
        stillUpAfterEscape = modal.isVisible();
        buttonsLeftToRight(modal).at(1)->click();
    });
    EXPECT_EQ(ui.runModal(alertWith({"Keep", "Remove"})).buttonIndex, 1);
    EXPECT_TRUE(stillUpAfterEscape);
    EXPECT_EQ(ZVQtUserInterface::escapeButtonIndex({"Keep", "Remove"}), -1);
}

TEST(ZVQtUserInterface, SuppressionCheckBoxIsReported) {
    shellApplication();
    ZVQtUserInterface ui;
    ZVAlert alert = alertWith({"OK"});
    alert.suppressionButtonTitle = "Do not show this message again";
    whenModalAppears([](QWidget& modal) {
        auto* box = modal.findChild<QCheckBox*>();
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(box->text(), QStringLiteral("Do not show this message again"));
        box->setChecked(true);
        buttonsLeftToRight(modal).at(0)->click();
    });
    EXPECT_TRUE(ui.runModal(alert).suppressionChecked);
}

TEST(ZVQtUserInterface, TextFieldAlertGivesTheTextOrNothing) {
    shellApplication();
    ZVQtUserInterface ui;
    bool secureEcho = false;
    whenModalAppears([&](QWidget& modal) {
        auto* field = modal.findChild<QLineEdit*>(QStringLiteral("alertTextField"));
        ASSERT_NE(field, nullptr);
        secureEcho = field->echoMode() == QLineEdit::Password;
        field->setText(QStringLiteral("Fixed the login page"));
        buttonsLeftToRight(modal).at(0)->click();
    });
    EXPECT_EQ(ui.runModalWithTextField(alertWith({"Post", "Cancel"}), "draft", true),
              std::optional<std::string>("Fixed the login page"));
    EXPECT_TRUE(secureEcho);

    whenModalAppears([](QWidget& modal) { buttonsLeftToRight(modal).at(1)->click(); });
    EXPECT_EQ(ui.runModalWithTextField(alertWith({"Post", "Cancel"}), "draft", false), std::nullopt);

    whenModalAppears([](QWidget& modal) { pressKey(modal, Qt::Key_Escape); });
    EXPECT_EQ(ui.runModalWithTextField(alertWith({"Post", "Cancel"}), "draft", false), std::nullopt);
}
