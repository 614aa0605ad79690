#include <gtest/gtest.h>

#include <functional>

#include "core/actions/ZVActionCenter.h"
#include "core/actions/ZVTimeEditor.h"
#include "core/actions/ZVTimeMover.h"
#include "core/actions/ZVTimeRounder.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/log_entries/ZVTimeSetLogEntry.h"
#include "core/sync/CoreTestEnvironment.h"
#include "core/sync/TestServiceIntegration.h"
#include "core/ui/ZVTimeActionDialogs.h"

namespace {

/// Dialogs that act as the user would, through scripted steps.
class ScriptedTimeActionDialogs : public ZVTimeActionDialogs {
public:
    ScriptedTimeActionDialogs() { install(this); }
    ~ScriptedTimeActionDialogs() override { install(nullptr); }

    void runTimeMover(ZVTimeMover& mover) override {
        ++moverRuns;
        confirmTitle = mover.confirmButtonTitle();
        if (onMover) onMover(mover);
    }
    void runTimeRounding(ZVTimeRounder& rounder) override {
        ++roundingRuns;
        if (onRounding) onRounding(rounder);
    }
    void runTimeEditor(ZVTimeEditor& editor) override {
        ++editorRuns;
        shownFields = editor.fields();
        if (onEditor) onEditor(editor);
    }

    std::function<void(ZVTimeMover&)> onMover;
    std::function<void(ZVTimeRounder&)> onRounding;
    std::function<void(ZVTimeEditor&)> onEditor;
    int moverRuns = 0;
    int roundingRuns = 0;
    int editorRuns = 0;
    std::string confirmTitle;
    ZVHoursMinutesSeconds shownFields;
};

class TimeActionsTest : public ::testing::Test {
protected:
    void SetUp() override {
        account = env.makeAccount("http://127.0.0.1:9");
        account->setName("Work");
        current = env.addProject(*account, "1", 600, "Current");
        other = env.addProject(*account, "2", 300, "Other");
        env.setCurrentProject(current);
    }

    void moveWith(ZVTimeAction action, ZVTimeActionDirection direction, const std::shared_ptr<ZVIntegrationProject>& target,
                  ZVHoursMinutesSeconds amount) {
        dialogs.onMover = [&](ZVTimeMover& mover) {
            mover.selectProject(target);
            mover.confirm(amount);
        };
        ZVActionCenter::shared().changeTime(action, direction);
    }

    ZVHeartBeat& heartBeat() { return ZVHeartBeat::sharedHeartBeat(); }

    CoreTestEnvironment env;
    ScriptedTimeActionDialogs dialogs;
    std::shared_ptr<TestServiceIntegration> account;
    std::shared_ptr<ZVIntegrationProject> current;
    std::shared_ptr<ZVIntegrationProject> other;
};

TEST_F(TimeActionsTest, MovingAllTimeAwayEmptiesTheClock) {
    moveWith(ZVTimeAction::move, ZVTimeActionDirection::fromCurrentProject, other, {0, 10, 0});
    EXPECT_EQ(dialogs.confirmTitle, "Move");
    EXPECT_EQ(current->time(), 0u);
    EXPECT_EQ(other->time(), 900u);
    EXPECT_EQ(heartBeat().currentTimeString(), "00:00:00");
    EXPECT_TRUE(current->logEntries().empty());
    EXPECT_TRUE(other->logEntries().empty());
}

TEST_F(TimeActionsTest, CopyCreatesTime) {
    moveWith(ZVTimeAction::copy, ZVTimeActionDirection::fromCurrentProject, other, {0, 1, 40});
    EXPECT_EQ(dialogs.confirmTitle, "Copy");
    EXPECT_EQ(current->time(), 600u);
    EXPECT_EQ(heartBeat().currentTime(), 600u);
    EXPECT_EQ(other->time(), 400u);
}

TEST_F(TimeActionsTest, CopyToTheCurrentProjectRaisesTheRunningClock) {
    heartBeat().start();
    moveWith(ZVTimeAction::copy, ZVTimeActionDirection::toCurrentProject, other, {0, 5, 0});
    EXPECT_EQ(current->time(), 900u);
    EXPECT_EQ(heartBeat().currentTime(), 900u);
    EXPECT_TRUE(heartBeat().isBeating());
    env.timers.advance(2);
    EXPECT_EQ(heartBeat().currentTime(), 902u);
    EXPECT_EQ(other->time(), 300u);
}

TEST_F(TimeActionsTest, RefusedTransfersChangeNothing) {
    struct Case {
        ZVTimeAction action;
        ZVTimeActionDirection direction;
        bool sameProject;
        ZVHoursMinutesSeconds amount;
        std::string message;
    };
    const std::vector<Case> cases{
        {ZVTimeAction::move, ZVTimeActionDirection::toCurrentProject, false, {0, 5, 1},
         "Project Other doesn't have enough time to be transferred."},
        {ZVTimeAction::copy, ZVTimeActionDirection::fromCurrentProject, false, {1, 0, 0},
         "Project Current doesn't have enough time to be transferred."},
        {ZVTimeAction::move, ZVTimeActionDirection::fromCurrentProject, true, {0, 0, 1},
         "Cannot move time to the same project."},
    };
    for (const auto& testCase : cases) {
        env.ui.clearRecords();
        moveWith(testCase.action, testCase.direction, testCase.sameProject ? current : other, testCase.amount);
        ASSERT_EQ(env.ui.alerts().size(), 1u) << testCase.message;
        EXPECT_EQ(env.ui.alerts()[0].messageText, testCase.message);
        EXPECT_EQ(env.ui.alerts()[0].informativeText, "No action will be performed.");
        EXPECT_EQ(current->time(), 600u);
        EXPECT_EQ(other->time(), 300u);
    }
}

TEST_F(TimeActionsTest, CancelledMoverChangesNothing) {
    dialogs.onMover = [&](ZVTimeMover& mover) {
        mover.selectProject(other);
        mover.confirm({0, 1, 0});
        mover.cancel();
    };
    ZVActionCenter::shared().changeTime(ZVTimeAction::move, ZVTimeActionDirection::fromCurrentProject);
    EXPECT_EQ(current->time(), 600u);
    EXPECT_TRUE(env.ui.alerts().empty());
}

TEST_F(TimeActionsTest, MoverOffersTheSourceTimeAndNamesTheChoice) {
    ZVTimeMover mover(ZVTimeAction::move, ZVTimeActionDirection::toCurrentProject);
    EXPECT_FALSE(mover.selectAllTime());
    EXPECT_EQ(mover.projectPopUpTitle(), "No Project Selected");
    other->setTimeWithoutSaving(3725);
    mover.selectProject(other);
    EXPECT_EQ(mover.projectPopUpTitle(), "Other");
    EXPECT_EQ(mover.selectAllTime(), (ZVHoursMinutesSeconds{1, 2, 5}));
    mover.selectProject(current);
    EXPECT_EQ(mover.projectPopUpTitle(), "No Project Selected");
}

TEST_F(TimeActionsTest, RoundingStopsTheTimerAndLogsTheChange) {
    current->setTimeWithoutSaving(1000);
    heartBeat().setCurrentTime(1000);
    heartBeat().start();
    dialogs.onRounding = [](ZVTimeRounder& rounder) { EXPECT_TRUE(rounder.roundTime(1, 4)); };
    ZVActionCenter::shared().roundTime(current);
    EXPECT_FALSE(heartBeat().isBeating());
    EXPECT_EQ(current->time(), 1800u);
    EXPECT_EQ(heartBeat().currentTime(), 1800u);
    auto entry = std::dynamic_pointer_cast<ZVTimeSetLogEntry>(current->logEntries().back());
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->originalTime(), 1000u);
    EXPECT_EQ(entry->newTime(), 1800u);
    EXPECT_EQ(entry->text().rfind("Changing time to ", 0), 0u);
}

TEST_F(TimeActionsTest, RoundingPositionsMapToDirectionsAndDurationsAndNoneBeyondTheTable) {
    EXPECT_EQ(ZVTimeRounder::directionAtPosition(0), ZVTimeRoundingDirection::nearest);
    EXPECT_EQ(ZVTimeRounder::directionAtPosition(1), ZVTimeRoundingDirection::up);
    EXPECT_EQ(ZVTimeRounder::directionAtPosition(2), ZVTimeRoundingDirection::down);
    EXPECT_EQ(ZVTimeRounder::directionAtPosition(3), ZVTimeRoundingDirection::nearest);
    struct Case {
        int direction;
        int duration;
        std::uint64_t expected;
    };
    // 1000 seconds, by position.
    const std::vector<Case> cases{{0, 0, 1020}, {2, 1, 900}, {1, 2, 1080}, {2, 3, 600},
                                  {0, 4, 900},  {1, 5, 1800}, {2, 6, 0}};
    for (const auto& testCase : cases) {
        other->setTimeWithoutSaving(1000);
        ZVTimeRounder rounder(other);
        EXPECT_TRUE(rounder.roundTime(testCase.direction, testCase.duration));
        EXPECT_EQ(other->time(), testCase.expected) << testCase.direction << "/" << testCase.duration;
    }
    // A position beyond the table keeps the dialog open and changes nothing.
    ZVTimeRounder rounder(current);
    EXPECT_FALSE(rounder.roundTime(1, 7));
    EXPECT_FALSE(rounder.roundTime(1, -1));
    EXPECT_EQ(current->time(), 600u);
    EXPECT_TRUE(current->logEntries().empty());
}

TEST_F(TimeActionsTest, EditingKeepsTheTimerRunningAndLogsEvenTheSameValue) {
    heartBeat().start();
    env.timers.advance(5);
    dialogs.onEditor = [](ZVTimeEditor& editor) { editor.done(0, 10, 5); };
    ZVActionCenter::shared().showTimeEditing();
    EXPECT_EQ(dialogs.shownFields, (ZVHoursMinutesSeconds{0, 10, 5}));
    EXPECT_TRUE(heartBeat().isBeating());
    EXPECT_EQ(heartBeat().currentTime(), 605u);
    EXPECT_EQ(current->time(), 605u);
    auto entry = std::dynamic_pointer_cast<ZVTimeSetLogEntry>(current->logEntries().back());
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->newTime(), 605u);
}

TEST_F(TimeActionsTest, EditingAnotherProjectLeavesTheClockAndArrowKeysStopAtZero) {
    ZVTimeEditor editor(other);
    editor.done(1, 90, 0.9);
    EXPECT_EQ(other->time(), 3600u + 5400u);
    EXPECT_EQ(heartBeat().currentTime(), 600u);
    // The arrow keys step a field without going below zero.
    EXPECT_EQ(ZVTimeEditor::valueAfterDownKey(0), 0u);
    EXPECT_EQ(ZVTimeEditor::valueAfterDownKey(5), 4u);
    EXPECT_EQ(ZVTimeEditor::valueAfterUpKey(59), 60u);
}

TEST_F(TimeActionsTest, CommandsWithoutAProjectFailInTheirOwnWays) {
    env.setCurrentProject(nullptr);
    ZVActionCenter::shared().showTimeRounding();
    EXPECT_EQ(env.ui.beepCount(), 1);
    ZVActionCenter::shared().showTimeEditing();
    EXPECT_EQ(dialogs.editorRuns, 0);
    ZVActionCenter::shared().postTime("text");
    EXPECT_EQ(env.ui.beepCount(), 2);
    ZVActionCenter::shared().resetTimer();
    ASSERT_EQ(env.ui.alerts().size(), 1u);
    EXPECT_EQ(env.ui.alerts()[0].messageText, "No project is selected.");
    EXPECT_EQ(env.ui.alerts()[0].informativeText, "You need to select a project before modifying the timer.");
}

TEST_F(TimeActionsTest, ResetTimerAsksThenLogsAndClears) {
    env.ui.answerWith("Cancel");
    ZVActionCenter::shared().resetTimer();
    EXPECT_EQ(current->time(), 600u);

    heartBeat().start();
    int resets = 0;
    auto token = ZVNotificationCenter::shared().addObserver(ZVIntegrationProjectTimeDidResetNotification,
                                                           [&](const ZVNotification& notification) {
                                                               EXPECT_EQ(notification.objectAs<ZVIntegrationProject>(), current);
                                                               ++resets;
                                                           });
    env.ui.answerWith("Reset");
    ZVActionCenter::shared().resetTimer();
    ZVNotificationCenter::shared().removeObserver(token);
    EXPECT_EQ(env.ui.alerts().back().messageText, "Are you sure you want to reset the timer?");
    EXPECT_EQ(current->time(), 0u);
    EXPECT_EQ(heartBeat().currentTimeString(), "00:00:00");
    EXPECT_FALSE(heartBeat().isBeating());
    EXPECT_EQ(resets, 1);
    EXPECT_EQ(current->logEntries().back()->text(), "Reset time for 'Current'");
}

TEST_F(TimeActionsTest, TaskTextBecomesTheTitleOfANewRunCoveringTheTime) {
    ZVActionCenter::shared().timeEntryTextHasChanged("Typing");
    ASSERT_EQ(current->logEntries().size(), 1u);
    auto run = current->lastTimeLogEntry();
    EXPECT_EQ(run->text(), "Typing");
    EXPECT_EQ(*run->stopDate(), env.clock.now());
    EXPECT_DOUBLE_EQ((*run->stopDate() - run->startDate()).count(), 600.0);

    ZVActionCenter::shared().timeEntryTextHasChanged("Retyped");
    EXPECT_EQ(current->logEntries().size(), 1u);
    EXPECT_EQ(run->text(), "Retyped");
}

TEST_F(TimeActionsTest, ToggleStartsAndStopsAndTheBannerShowsThePath) {
    ZVActionCenter::shared().toggleTimer();
    EXPECT_TRUE(heartBeat().isBeating());
    ZVActionCenter::shared().toggleTimer();
    EXPECT_FALSE(heartBeat().isBeating());
    env.ui.clearRecords();
    ZVActionCenter::shared().showSystemNotification(other);
    ASSERT_EQ(env.ui.banners().size(), 1u);
    EXPECT_EQ(env.ui.banners()[0].first, "Work \u2794 Other");
}

}  // namespace
