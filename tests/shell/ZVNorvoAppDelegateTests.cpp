#include <QFile>
#include <QKeySequence>
#include <QPlainTextEdit>
#include <QUrl>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>

#include "ShellTestEnvironment.h"
#include "ZVPreferences.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVNorvoMainWindow.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "preferences/ZVNorvoPreferences.h"
#include "testkit/ScriptedUserInterface.h"
#include "ui_elements/ZVProjectPopUpButton.h"
#include "ui_elements/ZVReceiptDrawerWindow.h"
#include "ui_elements/ZVTimeTextField.h"

using namespace Qt::StringLiterals;

namespace {

class ZVNorvoAppDelegateTest : public LaunchedAppFixture {
protected:
    ZVNorvoMainWindow& window() { return *delegate->window(); }
};

}  // namespace

TEST_F(ZVNorvoAppDelegateTest, PickerReadsNoProjectUntilOneIsChosenFromItsMenu) {
    ZVProjectPopUpButton& picker = *window().projectListPopUpButton();
    EXPECT_EQ(picker.text(), u"No project selected"_s);
    EXPECT_TRUE(picker.toolTip().isEmpty());
    auto project = addProject(ZVNorvoIntegration::sharedIntegration(), "Website");
    const auto menu = picker.recreatedMenu();
    ASSERT_GE(menu->size(), 5u);
    EXPECT_EQ(menu->items[0]->title, "Projects");
    EXPECT_EQ(menu->items.back()->title, "Add Account...");
    EXPECT_NE(menu->itemWithTitle("No Accounts"), nullptr);
    // The first item of the project is the one that selects it; "Remove" follows.
    ZVMenuItem* item = itemOfProject(*menu->items[0]->submenu, project);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->action, "selectProject:");
    item->perform();
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), project);
    EXPECT_EQ(picker.text(), u"Website"_s);
    EXPECT_EQ(picker.toolTip(), QString::fromUtf8("Projects ➔ Website"));
    // Names are shown as typed: a '&' never becomes a keyboard accelerator.
    for (const char* name : {"Müller & Söhne", "R&D", "A && B", "&Start"}) {
        project->setName(name);
        ZVIntegrationCenter::shared().setCurrentProject(nullptr);
        ZVIntegrationCenter::shared().setCurrentProject(project);
        EXPECT_TRUE(QKeySequence::mnemonic(picker.text()).isEmpty()) << name;
        EXPECT_EQ(QString(picker.text()).replace(u"&&"_s, u"&"_s), QString::fromUtf8(name));
    }
    // A refresh that renames the current project on its server renames it here.
    project->setName("Website 2");
    ZVNotificationCenter::shared().post(ZVIntegrationCenterSynchronizationDidEndNotification);
    EXPECT_EQ(picker.text(), u"Website 2"_s);
    EXPECT_EQ(picker.toolTip(), QString::fromUtf8("Projects ➔ Website 2"));
}

// The task text of a project with time but no log becomes the title of a
// run of that time; while the timer runs, it titles the open run alone.
TEST_F(ZVNorvoAppDelegateTest, StartStopButtonClockAndTaskTextFollowTheTimer) {
    auto project = addProject(ZVNorvoIntegration::sharedIntegration(), "Website");
    project->setTimeWithoutSaving(3723);
    ZVIntegrationCenter::shared().setCurrentProject(project);
    EXPECT_EQ(window().timeTextField()->text(), u"01:02:03"_s);
    EXPECT_EQ(window().startStopButton()->text(), u"Start"_s);
    window().currentTaskTextField()->setText(u"Fixing the footer"_s);
    Q_EMIT window().currentTaskTextField()->editingFinished();
    auto entry = project->lastTimeLogEntry();
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->text(), "Fixing the footer");
    window().startStopButton()->click();
    EXPECT_TRUE(ZVHeartBeat::sharedHeartBeat().isBeating());
    EXPECT_EQ(window().startStopButton()->text(), u"Stop"_s);
    window().currentTaskTextField()->setText(u"Header"_s);
    Q_EMIT window().currentTaskTextField()->editingFinished();
    EXPECT_EQ(entry->text(), "Fixing the footer");
    window().startStopButton()->click();
    EXPECT_FALSE(ZVHeartBeat::sharedHeartBeat().isBeating());
    EXPECT_EQ(project->lastTimeLogEntry()->text(), "Header");
}

TEST_F(ZVNorvoAppDelegateTest, QuitAsksOnlyAboutUnpostedTimeAndOnlyWhenTheSettingIsOn) {
    auto tracked = addProject(addAccount("Jira"), "Tracked");
    tracked->setTimeWithoutSaving(120);
    window().show();
    EXPECT_EQ(delegate->applicationShouldTerminate(), ZVNorvoAppDelegate::TerminateReply::terminateNow)
        << "the setting is off at first";
    EXPECT_TRUE(ZVNorvoPreferences::shared().mainWindowIsVisible());
    ZVPreferences::shared().setBoolean(true, "KDWarnAboutUnpostedTimes");
    tracked->setTimeWithoutSaving(0);
    EXPECT_EQ(delegate->applicationShouldTerminate(), ZVNorvoAppDelegate::TerminateReply::terminateNow);
    EXPECT_TRUE(ui.alerts().empty());
    tracked->setTimeWithoutSaving(120);
    window().hide();
    ui.answerWith("Cancel");
    EXPECT_EQ(delegate->applicationShouldTerminate(), ZVNorvoAppDelegate::TerminateReply::terminateCancel);
    ASSERT_EQ(ui.alerts().size(), 1u);
    EXPECT_EQ(ui.alerts()[0].messageText,
              "You have some projects with tracked time that is not posted. Do you wish to quit anyway?");
    EXPECT_EQ(ui.alerts()[0].buttons, (std::vector<std::string>{"Cancel", "Quit"}));
    EXPECT_FALSE(ZVNorvoPreferences::shared().mainWindowIsVisible()) << "stored even though the quit was cancelled";
    ui.answerWith("Quit");
    EXPECT_EQ(delegate->applicationShouldTerminate(), ZVNorvoAppDelegate::TerminateReply::terminateNow);
}

TEST_F(ZVNorvoAppDelegateTest, KeepAboveOtherWindowsFollowsTheSetting) {
    for (const bool above : {true, false}) {
        ZVPreferences::shared().setBoolean(above, "ZVKeepTimeWindowAboveOtherWindows");
        delegate->updateMainWindowLevel();
        EXPECT_EQ(window().windowFlags().testFlag(Qt::WindowStaysOnTopHint), above);
    }
}

TEST_F(ZVNorvoAppDelegateTest, WhatsNewComesOnceAndBlocksNothing) {
    delegate->showReleaseNotesOnce();
    QWidget* whatsNew = nullptr;
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (widget->isVisible() && widget->windowTitle() == u"What's New in Norvo"_s) whatsNew = widget;
    ASSERT_NE(whatsNew, nullptr);
    EXPECT_FALSE(whatsNew->isModal());
    EXPECT_TRUE(ZVPreferences::shared().boolean("ZVReleaseNotes847"));
    whatsNew->close();
    delegate->showReleaseNotesOnce();
    EXPECT_FALSE(whatsNew->isVisible());
}

// A new user meets the two ways to a first project in the window itself,
// once the database is read: until then it is not known that there are none.
TEST_F(ZVNorvoAppDelegateTest, FirstStartOffersAddProjectAndAddAccountUntilThereIsAProject) {
    QWidget& start = *window().gettingStarted();
    ZVIntegrationCenter::resetShared();
    ZVIntegrationCenter::loadSharedInBackground();
    ZVNotificationCenter::shared().post(ZVIntegrationCenterCurrentProjectDidChangeNotification);
    EXPECT_FALSE(start.isVisibleTo(&window()));
    ASSERT_TRUE(processEventsUntil([] { return ZVIntegrationCenter::shared().isLoaded(); }, 10000));
    EXPECT_TRUE(start.isVisibleTo(&window()));
    ui.answerTextPromptWith(std::string("Website"));
    start.findChild<QPushButton*>(u"addProjectButton"_s)->click();
    auto current = ZVIntegrationCenter::shared().currentProject();
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(current->name(), "Website");
    EXPECT_FALSE(start.isVisibleTo(&window()));
    // Removing the last project brings the offer back; an account hides it.
    ZVIntegrationCenter::shared().setCurrentProject(nullptr);
    ZVNorvoIntegration::sharedIntegration()->removeProject(current);
    EXPECT_TRUE(start.isVisibleTo(&window()));
    addAccount("Jira");
    ZVNotificationCenter::shared().post(ZVIntegrationCenterSynchronizationDidEndNotification);
    EXPECT_FALSE(start.isVisibleTo(&window()));
}

// The log is a receipt in a window of its own beside the timer window: it
// prints with a sound unless that is switched off, keeps to widths of 199
// to 500, which it remembers, follows the timer window and never takes the
// keyboard from it.
TEST_F(ZVNorvoAppDelegateTest, TheLogIsAReceiptBesideTheTimerWindow) {
    window().show();
    ZVReceiptDrawerWindow& drawer = *window().logDrawer();
    QStringList played;
    drawer.setSoundPlayer([&](const QString& path) { played << path; });
    auto project = addProject(ZVNorvoIntegration::sharedIntegration(), "Website");
    ZVIntegrationCenter::shared().setCurrentProject(project);
    window().currentTaskTextField()->setText(u"Wireframes"_s);
    ZVHeartBeat::sharedHeartBeat().start();
    EXPECT_TRUE(drawer.logText().contains(u"Wireframes\nSTARTED: "_s)) << "the open run is listed";
    EXPECT_FALSE(drawer.logText().contains(u"NO ENTRIES YET"_s));
    drawer.toggle();
    ASSERT_TRUE(drawer.isShown());
    EXPECT_EQ(played, QStringList{ZVReceiptDrawerWindow::printSoundPath()});
    EXPECT_TRUE(drawer.windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    ASSERT_TRUE(processEventsUntil([&] { return drawer.width() >= ZVReceiptDrawerWindow::minimumDrawerWidth; }));
    processEventsUntil([] { return false; }, 300);  // the slide ends
    EXPECT_EQ(drawer.geometry().left(), window().frameGeometry().right() + 1);
    for (const auto& [width, taken] : {std::pair{198, false}, {501, false}, {199, true}, {500, true}, {260, true}})
        EXPECT_EQ(drawer.resizeToWidth(width), taken) << width;
    EXPECT_EQ(drawer.width(), 260);
    drawer.storeSize();
    EXPECT_EQ(*ZVPreferences::shared().value("KDReceiptDrawerWindowFrameSize")->string(),
              ZVReceiptDrawerWindow::sizeString(drawer.size()).toStdString());
    window().move(window().pos() + QPoint(40, 30));
    EXPECT_TRUE(processEventsUntil([&] { return drawer.geometry().left() == window().frameGeometry().right() + 1; }));
    drawer.toggle();
    EXPECT_FALSE(drawer.isShown());
    EXPECT_FALSE(ZVNorvoPreferences::shared().isReceiptDrawerVisible());
    ZVNorvoPreferences::shared().setPlaysPrintSoundWhenShowingLog(false);
    drawer.toggle();
    EXPECT_EQ(played.size(), 1) << "the sound is switched off";
    EXPECT_TRUE(ZVNorvoPreferences::shared().isReceiptDrawerVisible());
    EXPECT_TRUE(processEventsUntil([&] { return drawer.width() == 260; })) << "the width is kept";
    EXPECT_EQ(ZVReceiptDrawerWindow::sizeFromString(u"{ 320, 410 }"_s), QSize(320, 410));
    ZVHeartBeat::sharedHeartBeat().stop();
}

// Help and release notes are what is installed with Norvo, never a web page.
TEST_F(ZVNorvoAppDelegateTest, HelpAndReleaseNotesComeFromTheInstalledFiles) {
    delegate->showHelp();
    ASSERT_EQ(ui.openedURLs().size(), 1u);
    const QUrl help(QString::fromStdString(ui.openedURLs()[0]));
    EXPECT_TRUE(help.isLocalFile()) << ui.openedURLs()[0];
    QFile page(help.toLocalFile());
    ASSERT_TRUE(page.open(QIODevice::ReadOnly)) << "the help is not installed in the share folder";
    EXPECT_TRUE(page.readAll().contains("Add Project..."));
    ZVNorvoAppDelegate::showChangelog(nullptr);
    QWidget* changelog = nullptr;
    ASSERT_TRUE(processEventsUntil([&] {
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (widget->objectName() == u"changelogWindow"_s && widget->isVisible()) changelog = widget;
        return changelog != nullptr;
    }));
    const QString text = changelog->findChild<QPlainTextEdit*>(u"changelogText"_s)->toPlainText();
    EXPECT_TRUE(text.startsWith(u"norvo ("_s)) << text.toStdString();
    changelog->close();
}
