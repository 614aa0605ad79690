#include <QKeyEvent>
#include <QProcess>
#include <QWindow>
#include <QStandardPaths>

#include "IgnoredCommands.h"
#include "ShellTestEnvironment.h"
#include "ZVPreferences.h"
#include "ui_elements/ZVApplicationCommands.h"
#include "app/ZVGlobalHotKeys.h"
#include "app/ZVMenuManager.h"
#include "core/ui/ZVMenu.h"
#include "preferences/ZVNorvoPreferences.h"
#include "ui_elements/ZVKeyCombo.h"
#include "ui_elements/ZVShortcutRecorder.h"
#include "app/ZVStatusItemController.h"
#include "ui_elements/ZVStatusItemView.h"
#include "app/ZVTimerViewController.h"

TEST(ZVStatusItemView, ClockTextFollowsTheSecondsSetting) {
    struct Case {
        const char* time;
        bool seconds;
        const char* shown;
    };
    const Case cases[] = {
        {"00:00:05", false, "00:00"}, {"00:00:05", true, "00:00:05"}, {"", true, "00:00:00"},
        {"", false, "00:00"},         {"123:04:05", false, "123:04"},
    };
    for (const Case& c : cases) {
        ZVStatusItemView view;
        view.setTimeString(QString::fromUtf8(c.time));
        view.setDisplaysSeconds(c.seconds);
        EXPECT_EQ(view.displayedTimeString(), QString::fromUtf8(c.shown)) << c.time;
    }
}

TEST(ZVStatusItemView, PillIsRedOnlyWhileRunningInColour) {
    ZVStatusItemView view;
    const QPoint inside(4, ZVStatusItemView::iconSize / 2);
    view.setBeating(true);
    const QColor running = view.render().pixelColor(inside);
    EXPECT_GT(running.red(), 200);
    EXPECT_LT(running.green(), 40);
    view.setUsesMonochromeColors(true);
    const QColor monochrome = view.render().pixelColor(inside);
    EXPECT_EQ(monochrome.red(), monochrome.green()) << "monochrome never turns red";
    view.setUsesMonochromeColors(false);
    view.setBeating(false);
    EXPECT_EQ(view.pillColor().red(), monochrome.red()) << "a stopped timer is grey";
    EXPECT_EQ(view.pillColor().green(), monochrome.green());
}

// The tray, the recorder and the hot keys on a fresh home and centre.
class ZVStatusItemAndRecorderTest : public ShellFixture {};

// The clock ticks twice a second; the tray must only get a new picture when
// what it shows changes, or it redraws for nothing all day.
TEST_F(ZVStatusItemAndRecorderTest, TrayIconIsReplacedOnlyWhenTheShownClockChanges) {
    ZVNorvoPreferences::shared().setDisplaysSecondsInMenuBar(false);
    IgnoredCommands commands;
    ZVStatusItemController controller(commands);
    controller.updateItemWidth();
    auto& beat = ZVHeartBeat::sharedHeartBeat();
    const auto iconKey = [&] { return controller.statusItem().icon().cacheKey(); };
    controller.heartBeat(beat, "00:00:05");
    const auto first = iconKey();
    controller.heartBeat(beat, "00:00:06");
    controller.heartBeat(beat, "00:00:59");
    EXPECT_EQ(iconKey(), first) << "seconds are hidden: nothing visible changed";
    controller.heartBeat(beat, "00:01:00");
    const auto nextMinute = iconKey();
    EXPECT_NE(nextMinute, first);
    EXPECT_TRUE(controller.statusItem().toolTip().startsWith(QStringLiteral("00:01")));
    ZVNorvoPreferences::shared().setDisplaysSecondsInMenuBar(true);
    controller.updateItemWidth();
    EXPECT_NE(iconKey(), nextMinute) << "the seconds appear at once";
    const auto withSeconds = iconKey();
    controller.heartBeat(beat, "00:01:01");
    EXPECT_NE(iconKey(), withSeconds);
}

TEST_F(ZVStatusItemAndRecorderTest, ToolTipNamesTheProjectOrSaysNoProject) {
    EXPECT_EQ(ZVStatusItemController::toolTipText(), QStringLiteral("No Project"));
    auto project = addProject(ZVNorvoIntegration::sharedIntegration(), "Website");
    ZVIntegrationCenter::shared().setCurrentProject(project);
    EXPECT_EQ(ZVStatusItemController::toolTipText(), QString::fromUtf8("Projects ➔ Website"));
}

TEST(ZVKeyCombo, StoredFormRoundTripsAndReadsTheOlderModifiersKey) {
    const ZVKeyCombo combo{Qt::Key_T, Qt::ControlModifier | Qt::AltModifier};
    const ZVValue stored = combo.dictionaryRepresentation();
    EXPECT_EQ(stored["keyChars"], ZVValue("t"));
    EXPECT_EQ(ZVKeyCombo::fromDictionary(stored), combo);
    ZVDictionary older{{"keyCode", std::int64_t{Qt::Key_P}},
                       {"modifiers", static_cast<std::int64_t>(Qt::MetaModifier)}};
    EXPECT_EQ(ZVKeyCombo::fromDictionary(older), (ZVKeyCombo{Qt::Key_P, Qt::MetaModifier}));
    EXPECT_TRUE(ZVKeyCombo::fromDictionary(ZVDictionary{}).isEmpty());
    EXPECT_EQ(ZVKeyCombo::preferenceKey(QStringLiteral("PostTimeShortcut")),
              QStringLiteral("ShortcutRecorder PostTimeShortcut"));
}

TEST_F(ZVStatusItemAndRecorderTest, ShortcutRecorderRecordsRefusesClearsAndSurvivesARestart) {
    ZVShortcutRecorder recorder;
    recorder.setAutosaveName(QStringLiteral("KeyboardShortcut"));
    const ZVKeyCombo taken{Qt::Key_Q, Qt::ControlModifier};
    recorder.setValidator([taken](const ZVKeyCombo& combo) {
        return combo == taken ? QStringLiteral("Used by the menu item \"Quit Norvo\".") : QString();
    });
    std::vector<ZVKeyCombo> changes;
    QObject::connect(&recorder, &ZVShortcutRecorder::keyComboDidChange,
                     [&](const ZVKeyCombo& combo) { changes.push_back(combo); });
    recorder.click();
    ASSERT_TRUE(recorder.isRecording());
    recorder.recordKey(Qt::Key_A, Qt::NoModifier);
    EXPECT_TRUE(recorder.isRecording()) << "a plain letter is no global shortcut";
    recorder.recordKey(Qt::Key_Q, Qt::ControlModifier);
    EXPECT_TRUE(recorder.isRecording());
    EXPECT_FALSE(recorder.lastRefusal().isEmpty());
    QKeyEvent press(QEvent::KeyPress, Qt::Key_T, Qt::ControlModifier | Qt::AltModifier);
    QApplication::sendEvent(&recorder, &press);
    EXPECT_FALSE(recorder.isRecording());
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0], (ZVKeyCombo{Qt::Key_T, Qt::ControlModifier | Qt::AltModifier}));
    EXPECT_FALSE(recorder.text().isEmpty());
    recorder.saveKeyCombo();
    ZVPreferences::shared().synchronize();
    ZVPreferences::shared().reload();
    EXPECT_EQ(ZVKeyCombo::load(QStringLiteral("KeyboardShortcut")), changes[0]);
    recorder.click();
    recorder.recordKey(Qt::Key_Escape, Qt::NoModifier);
    EXPECT_EQ(recorder.keyCombo(), changes[0]) << "Escape leaves the combination";
    recorder.click();
    recorder.recordKey(Qt::Key_Backspace, Qt::NoModifier);
    EXPECT_TRUE(recorder.keyCombo().isEmpty());
    recorder.saveKeyCombo();
    EXPECT_FALSE(ZVPreferences::shared().value("ShortcutRecorder KeyboardShortcut").has_value());
}

// While the keys of a hot key are held, the hot key owns the keyboard: the
// quick search it opens must still end up with the typing, Escape and the
// click elsewhere once the keys are up.
TEST_F(ZVStatusItemAndRecorderTest, QuickSearchOpenedByAHeldHotKeyTakesTheTypingAndEscape) {
    if (QGuiApplication::platformName() != QStringLiteral("xcb")) GTEST_SKIP() << "needs an X display";
    if (QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty()) GTEST_SKIP() << "xdotool is missing";
    IgnoredCommands commands;
    ZVMenuManager::shared().setCommands(&commands);
    ZVStatusItemController controller(commands);
    ZVGlobalHotKeys hotKeys;
    const int registration = hotKeys.registerHotKey({Qt::Key_F9, Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier},
                                                    [&] { controller.showQuickSearch(); });
    if (registration < 0) GTEST_SKIP() << "the combination is taken on this display";
    const auto xdotool = [](const QString& arguments) {
        QProcess::execute(QStringLiteral("xdotool"), arguments.split(QLatin1Char(' ')));
    };
    xdotool(QStringLiteral("keydown ctrl+alt+shift+F9"));
    ASSERT_TRUE(processEventsUntil([&] { return controller.isPopoverShown(); }));
    processEventsUntil([] { return false; }, 300);  // the keys are still down
    xdotool(QStringLiteral("keyup F9 shift alt ctrl"));
    processEventsUntil([] { return false; }, 400);
    xdotool(QStringLiteral("type ab"));
    auto* field = controller.timerViewController()->searchField();
    EXPECT_TRUE(processEventsUntil([&] { return field->text() == QStringLiteral("ab"); })) << field->text().toStdString();
    xdotool(QStringLiteral("key Escape"));
    EXPECT_TRUE(processEventsUntil([&] { return !controller.isPopoverShown(); })) << "Escape closes the panel";
    ZVMenuManager::shared().setCommands(nullptr);
}
