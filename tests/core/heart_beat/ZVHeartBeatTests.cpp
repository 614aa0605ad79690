#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZVPreferences.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/heart_beat/ZVHeartBeatVein.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/IntegrationTestDoubles.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/notifications/ZVNotificationCenter.h"

namespace {


/// Records what it is told and what the heart beat's text was at that moment.
class RecordingVein : public ZVHeartBeatVein {
public:
    void heartBeat(ZVHeartBeat& beat, const std::string& didUpdateTime) override {
        texts.push_back(didUpdateTime);
        previousTexts.push_back(beat.currentTimeString());
    }
    std::vector<std::string> texts;
    std::vector<std::string> previousTexts;
};

class HeartBeatTest : public testing::Test {
protected:
    void SetUp() override {
        account = RecordingIntegration::make("Work");
        project = ZVIntegrationProject::create("Task", "1");
        project->setIntegration(account);
        project->setTimeWithoutSaving(100);
        stateToken = ZVNotificationCenter::shared().addObserver(ZVHeartBeatStateDidChangeNotification,
                                                                [this](const ZVNotification&) { ++stateChanges; });
    }
    void TearDown() override { ZVNotificationCenter::shared().removeObserver(stateToken); }

    ZVHeartBeat& heartBeat() { return ZVHeartBeat::sharedHeartBeat(); }
    void selectProject() { ZVIntegrationCenter::shared().setCurrentProject(project); }

    TimerTestEnvironment environment;
    std::shared_ptr<RecordingIntegration> account;
    ZVIntegrationProject::Pointer project;
    ZVNotificationCenter::Token stateToken = 0;
    int stateChanges = 0;
};

TEST_F(HeartBeatTest, StartWithoutProjectTellsTheUserThenStartAndStopPostOnceEach) {
    ZVIntegrationCenter::shared();
    heartBeat().start();
    EXPECT_FALSE(heartBeat().isBeating());
    EXPECT_EQ(stateChanges, 0);
    ASSERT_EQ(environment.ui.alerts().size(), 1u);
    EXPECT_EQ(environment.ui.alerts()[0].messageText, "No project selected.");
    EXPECT_EQ(environment.ui.alerts()[0].informativeText,
              "You can either add an integration using the + button in the timer window, or add a local project "
              "using the pop up button's Norvo menu item.");

    selectProject();
    heartBeat().start();
    heartBeat().start();
    EXPECT_TRUE(heartBeat().isBeating());
    EXPECT_EQ(stateChanges, 1);
    heartBeat().stop();
    heartBeat().stop();
    EXPECT_FALSE(heartBeat().isBeating());
    EXPECT_EQ(stateChanges, 2);
    EXPECT_EQ(environment.timers.activeTimerCount(), 2u);  // the centre's two timers are all that is left
}

TEST_F(HeartBeatTest, ClockCountsWallTimeFromTheStartDateAndTicksWriteNothing) {
    selectProject();
    heartBeat().start();
    const int savesAtStart = account->saveCount;
    environment.timers.advance(0.95);
    EXPECT_EQ(heartBeat().currentTime(), 100u);
    environment.timers.advance(0.05);
    EXPECT_EQ(heartBeat().currentTime(), 101u);

    // A machine that stalls shows the lost seconds at the next tick.
    environment.clock.set(environment.clock.now() + std::chrono::duration<double>(10));
    environment.timers.advance(1);
    EXPECT_EQ(heartBeat().currentTime(), 112u);
    EXPECT_EQ(heartBeat().currentTimeString(), "00:01:52");

    // A time set while running is measured on from.
    heartBeat().setCurrentTime(500);
    EXPECT_EQ(heartBeat().currentTime(), 500u);
    environment.timers.advance(120);
    EXPECT_EQ(heartBeat().currentTime(), 620u);
    EXPECT_EQ(account->saveCount, savesAtStart);
    EXPECT_EQ(project->time(), 100u);
    // A stop between ticks keeps the seconds since the last one.
    environment.clock.set(environment.clock.now() + std::chrono::duration<double>(2.5));
    heartBeat().stop();
    EXPECT_EQ(project->time(), 622u);
}

TEST_F(HeartBeatTest, ClockMovedBackwardsMakesTheTimeJumpForward) {
    selectProject();
    heartBeat().start();
    environment.clock.set(environment.clock.now() - std::chrono::duration<double>(30));
    environment.timers.fireAll();
    EXPECT_EQ(heartBeat().currentTime(), 130u);
}

TEST_F(HeartBeatTest, VeinsAreToldInOrderSeeThePreviousTextAndReadHoursMinutesAndSeconds) {
    RecordingVein first;
    RecordingVein second;
    heartBeat().addVein(&first);
    heartBeat().addVein(&second);
    heartBeat().setCurrentTime(61);
    heartBeat().setCurrentTime(62);
    EXPECT_EQ(first.texts, (std::vector<std::string>{"00:01:01", "00:01:02"}));
    EXPECT_EQ(first.previousTexts, (std::vector<std::string>{"00:00:00", "00:01:01"}));
    EXPECT_EQ(second.texts, first.texts);
    heartBeat().removeVein(&first);
    heartBeat().setCurrentTime(63);
    EXPECT_EQ(first.texts.size(), 2u);
    EXPECT_EQ(second.texts.size(), 3u);
    heartBeat().removeVein(&second);
    const std::pair<std::uint64_t, const char*> cases[] = {
        {0, "00:00:00"}, {59, "00:00:59"}, {3725, "01:02:05"}, {86399, "23:59:59"}, {360000, "100:00:00"}};
    for (const auto& [seconds, text] : cases) {
        RecordingVein vein;
        heartBeat().addVein(&vein);
        heartBeat().setCurrentTime(seconds);
        heartBeat().removeVein(&vein);
        EXPECT_EQ(vein.texts, std::vector<std::string>{text});
        EXPECT_EQ(heartBeat().currentTimeString(), text);
    }
}

TEST_F(HeartBeatTest, StopWritesTheTimeSavesAndCountsTheTotalFromZeroForANegativeOne) {
    ZVPreferences::shared().setInteger(-1, "KDHeartBeatTotalNumberOfBeats");
    EXPECT_EQ(heartBeat().totalTime(), 0u);
    selectProject();
    heartBeat().start();
    environment.timers.advance(10.4);
    const int savesBeforeStop = account->saveCount;
    heartBeat().stop();

    EXPECT_EQ(project->time(), 110u);
    EXPECT_GE(account->saveCount, savesBeforeStop + 1);
    EXPECT_EQ(heartBeat().totalTime(), 10u);
    EXPECT_EQ(ZVPreferences::shared().integer("KDHeartBeatTotalNumberOfBeats"), 10);

    heartBeat().start();
    environment.timers.advance(5);
    heartBeat().stop();
    EXPECT_EQ(ZVPreferences::shared().integer("KDHeartBeatTotalNumberOfBeats"), 15);
}

TEST_F(HeartBeatTest, ResetWhileRunningLeavesTheTimerStoppedAtZero) {
    selectProject();
    heartBeat().start();
    environment.timers.advance(4);
    const int saves = account->saveCount;
    heartBeat().reset();

    EXPECT_FALSE(heartBeat().isBeating());
    EXPECT_EQ(heartBeat().currentTime(), 0u);
    EXPECT_EQ(heartBeat().currentTimeString(), "00:00:00");
    EXPECT_EQ(project->time(), 0u);
    EXPECT_GT(account->saveCount, saves);
    EXPECT_TRUE(project->logEntries().empty());
}

TEST_F(HeartBeatTest, ExternalChangeOfTheCurrentProjectsTimeIsTakenOver) {
    selectProject();
    project->setTimeWithoutSaving(300);
    ZVNotificationCenter::shared().post(ZVIntegrationProjectTimeDidChangeNotification, project);
    EXPECT_EQ(heartBeat().currentTime(), 300u);

    auto other = ZVIntegrationProject::create("Other", "2");
    other->setTimeWithoutSaving(999);
    ZVNotificationCenter::shared().post(ZVIntegrationProjectTimeDidChangeNotification, other);
    EXPECT_EQ(heartBeat().currentTime(), 300u);
}

TEST_F(HeartBeatTest, AutomaticPostingFollowsThePreference) {
    std::vector<ZVIntegrationProject::Pointer> posted;
    heartBeat().setAutomaticTimePoster([&](const ZVIntegrationProject::Pointer& p) { posted.push_back(p); });
    selectProject();

    heartBeat().start();
    heartBeat().stop();
    EXPECT_TRUE(posted.empty());

    ZVPreferences::shared().setBoolean(true, "KDAutomaticallyPostTimeAfterStoppingTimer");
    heartBeat().start();
    heartBeat().stop();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0], project);
}

TEST_F(HeartBeatTest, ReviewPromptComesOnceInTheFirstTwelveHoursOfAStoreBuild) {
    heartBeat().setStorePageURL("https://store.example/norvo");
    selectProject();
    environment.ui.answerWithIndex(0);
    heartBeat().start();
    environment.timers.advance(5);
    heartBeat().stop();

    ASSERT_EQ(environment.ui.alerts().size(), 1u);
    EXPECT_EQ(environment.ui.alerts()[0].messageText,
              "You seem to be enjoying using Norvo! If you like Norvo, please, rate it on the AppStore.");
    EXPECT_EQ(environment.ui.alerts()[0].buttons, (std::vector<std::string>{"Rate", "Cancel"}));
    EXPECT_EQ(environment.ui.openedURLs(), (std::vector<std::string>{"https://store.example/norvo"}));
    ZVPreferences::shared().reload();  // flushed to disk at once
    EXPECT_TRUE(ZVPreferences::shared().boolean("KDHeartBeatAskedForReview"));

    heartBeat().start();
    heartBeat().stop();
    EXPECT_EQ(environment.ui.alerts().size(), 1u);
}

TEST_F(HeartBeatTest, ReviewPromptNeverComesAfterTwelveHoursOrOutsideAStore) {
    heartBeat().start();  // no project yet: only the missing project alert
    environment.ui.clearRecords();
    selectProject();
    heartBeat().start();
    heartBeat().stop();
    EXPECT_TRUE(environment.ui.alerts().empty());  // no store page: not a store build

    ZVHeartBeat::resetSharedHeartBeat();
    ZVPreferences::shared().setInteger(43200, "KDHeartBeatTotalNumberOfBeats");
    heartBeat().setStorePageURL("https://store.example/norvo");
    selectProject();
    heartBeat().start();
    heartBeat().stop();
    EXPECT_TRUE(environment.ui.alerts().empty());
    EXPECT_FALSE(ZVPreferences::shared().boolean("KDHeartBeatAskedForReview"));
}

TEST_F(HeartBeatTest, SleepStopsARunningTimerAndWakeStartsItAgain) {
    selectProject();
    auto& notifications = ZVNotificationCenter::shared();
    notifications.post(ZVWorkspaceWillSleepNotification);
    notifications.post(ZVWorkspaceDidWakeNotification);
    EXPECT_FALSE(heartBeat().isBeating());

    heartBeat().start();
    notifications.post(ZVWorkspaceWillSleepNotification);
    EXPECT_FALSE(heartBeat().isBeating());
    notifications.post(ZVWorkspaceDidWakeNotification);
    EXPECT_TRUE(heartBeat().isBeating());

    // The flag outlives the wake: a second wake starts the timer again...
    heartBeat().stop();
    notifications.post(ZVWorkspaceDidWakeNotification);
    EXPECT_TRUE(heartBeat().isBeating());

    // ...until a sleep with the timer stopped clears it.
    heartBeat().stop();
    notifications.post(ZVWorkspaceWillSleepNotification);
    notifications.post(ZVWorkspaceDidWakeNotification);
    EXPECT_FALSE(heartBeat().isBeating());
}

}  // namespace
